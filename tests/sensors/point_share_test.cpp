// The seams at which several processes adjust one project, seen by a share that has all points.

#include "sensors/point_share.h"

#include <string>
#include <vector>

#include "driver/bundle_project.h"
#include "lsq/project_number.h"
#include "support/project_test.h"

namespace vorn {
namespace {

// Has everything, counts everything twice where it is told to, and lists points backwards.
class WholeShare final : public PointShare {
 public:
  WholeShare() { use_point_share(this); }
  ~WholeShare() override { use_point_share(nullptr); }

  bool is_first() const override { return first; }
  void meet(const OwnedList<BundleImage>& images) override { num_images = images.count(); }
  bool insert(BundleImage& image, std::unique_ptr<ImagePoint> point) override {
    ++num_inserted;
    return image.insert_point(std::move(point));
  }
  void order_points(const BundleProject& project) override {
    num_ordered = project.object_points.count();
  }
  void number_unknowns(const BundleProject&) override {}
  std::unique_ptr<AdjInterface> make_solver() override {
    return std::make_unique<AdjInterfaceNative>(method);
  }
  void add_up(std::span<double> values) override {
    for (double& value : values) value *= times;
  }
  void merge(std::span<const PointText> points, std::string& text) override {
    std::string backwards;
    std::size_t end = text.size();
    for (std::size_t k = points.size(); k-- > 0; end = points[k].begin) {
      backwards += text.substr(points[k].begin, end - points[k].begin);
    }
    text = backwards;
  }
  std::vector<UnknownValue> values_above(const Vector& rhs, double limit) override {
    return vorn::values_above(rhs, limit);
  }
  void complete(BundleImage&) override { ++num_complete; }
  void release(BundleImage&) override { --num_complete; }
  void gather_points(BundleProject&) override { ++num_gathered; }

  AdjInterfaceNative::Method method = AdjInterfaceNative::Method::dense;
  bool first = true;
  double times = 1.0;
  std::int32_t num_images = 0, num_inserted = 0, num_ordered = 0, num_complete = 0;
  int num_gathered = 0;
};

using PointShareRun = test::ProjectTest;

// Whoever has everything writes what a run without shares writes.
TEST_F(PointShareRun, ChangesNothingWhereAllPointsAreOwn) {
  const test::BundleRun alone = run();
  ASSERT_EQ(alone.result, 1);
  const std::string report = test::without_times(dir_.read("project.out"));
  const std::string residuals = dir_.read("project.res");
  WholeShare share;
  const test::BundleRun shared = run();
  EXPECT_EQ(shared.result, 1);
  EXPECT_EQ(shared.output, alone.output);
  EXPECT_EQ(test::without_times(dir_.read("project.out")), report);
  EXPECT_EQ(dir_.read("project.res"), residuals);
  EXPECT_EQ(share.num_images, 3);
  EXPECT_EQ(share.num_inserted, 24);
  EXPECT_EQ(share.num_ordered, 8);
  EXPECT_EQ(share.num_complete, 0);
  EXPECT_EQ(share.num_gathered, 1);
}

// The observations of what everybody has are the first process's, and all decide together.
TEST_F(PointShareRun, AddsCommonObservationsOnceAndFailsTogether) {
  WholeShare share;
  share.first = false;  // without the fixed orientations' weights the network has no datum
  EXPECT_EQ(run().result, 0);
  share.first = true;
  EXPECT_EQ(run().result, 1);
  EXPECT_TRUE(holds_for_all(true));
  EXPECT_FALSE(holds_for_all(false));
  share.times = 2.0;
  EXPECT_EQ(in_total(21), 42);
  const AdjObjectList::Counts counts = in_total(AdjObjectList::Counts{1, 2, 3});
  EXPECT_EQ(counts.total + 10 * counts.observed + 100 * counts.eliminated, 642);
}

TEST(PointLines, ComeInTheOrderOfTheShare) {
  const auto list = [](TextWriter& out) {
    out << "heading\n";
    PointLines lines(out);
    for (const std::int32_t slot : {0, 2, 5}) {
      lines.begin(slot);
      out << "point " << slot << "\n  its second line\n";
    }
    lines.finish();
    out << "end\n";
  };
  const std::string line[] = {"point 0\n  its second line\n", "point 2\n  its second line\n",
                              "point 5\n  its second line\n"};
  EXPECT_EQ(test::written_text(list), "heading\n" + line[0] + line[1] + line[2] + "end\n");
  const WholeShare share;
  EXPECT_EQ(test::written_text(list), "heading\n" + line[2] + line[1] + line[0] + "end\n");
  // A listing that is not finished, and a writer without a file.
  TextWriter nowhere;
  std::string text;
  {
    PointLines lines(nowhere);
    nowhere << "lost";
  }
  nowhere << "discarded";
  nowhere.capture(&text);
  nowhere << "taken " << 7;
  nowhere.capture(nullptr);
  EXPECT_EQ(text, "taken 7");
}

TEST(ProjectNumber, IsThatOfTheProcessUnlessToldOtherwise) {
  EXPECT_EQ(project_number(4), 4);
  use_project_numbers([](std::int32_t unknown) { return 10 * unknown; });
  EXPECT_EQ(project_number(4), 40);
  use_project_numbers(nullptr);
  EXPECT_EQ(project_number(4), 4);
}

TEST(ValuesAbove, NameTheirUnknowns) {
  Vector values(3);
  values[0] = 2.0;
  values[1] = -5.0;
  values[2] = 3.0;
  const std::vector<UnknownValue> above = values_above(values, 1.0);
  ASSERT_EQ(above.size(), 2U);
  EXPECT_EQ(above[1].unknown, 2);
  EXPECT_EQ(above[1].value, 3.0);
}

}  // namespace
}  // namespace vorn
