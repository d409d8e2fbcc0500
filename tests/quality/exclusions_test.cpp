// Lists of observations to leave out: how they are read, and what they do to a run.

#include "quality/exclusions.h"

#include <gmock/gmock.h>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "quality/quality.h"
#include "support/project_test.h"

namespace vorn {
namespace {

using testing::HasSubstr;

TEST(Exclusions, AreReadLineByLine) {
  std::vector<Exclusion> list;
  std::string error;
  EXPECT_TRUE(
      read_exclusions("# a comment\n\nimage-point 12 P#7   # why\r\n"
                      "parameter object_point 101 Z\nstop-dep\nrubbish",
                      list, error));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_TRUE(list[0].is_image_point);
  EXPECT_EQ(list[0].object, "12");
  EXPECT_EQ(list[0].item, "P#7");
  EXPECT_EQ(list[1].object_type, "object_point");
  EXPECT_EQ(list[1].item, "Z");
  for (const char* wrong : {"\nimage-point 12", "\nimage-point 12 7 8", "\npoint 12 7",
                            "\nparameter 101 Z", "\nparameter camera 101 Z"}) {
    EXPECT_FALSE(read_exclusions(wrong, list, error)) << wrong;
    EXPECT_THAT(error, HasSubstr("line 2")) << wrong;
  }
}

TEST(Exclusions, TakeObservationsOutOfARun) {
  const test::TempDir dir;
  test::make_synthetic_project({.points = 30}).write(dir);
  RunRequest request;
  request.path = dir.path("project.ctl");
  const auto counts = [&] {
    QualityStatistics statistics;
    request.inspect = [&](BundleProject& project) {
      statistics = find_quality(project, {}).statistics;
    };
    ls_params() = LSParams();
    test::captured_output([&] { EXPECT_EQ(run_project(request).result, 1); });
    return statistics;
  };
  const QualityStatistics all = counts();
  std::vector<Exclusion> list;
  request.prepare = [&](BundleProject& project, TextWriter& report) {
    const BundleImage& image = *project.images.begin();
    const ObjectPoint& point = *project.object_points.begin();
    list = {{true, {}, image.id, (*image.points.begin()).id},
            {false, "object_point", point.id, "X"},
            {true, {}, image.id, "nowhere"}};
    apply_exclusions(list, project, report);
  };
  const QualityStatistics fewer = counts();
  EXPECT_EQ(fewer.image_points, all.image_points - 1);
  EXPECT_EQ(fewer.observed_parameters, all.observed_parameters - 1);
  EXPECT_EQ(fewer.redundancy, all.redundancy - 3);
  const std::string report = dir.read("project.out");
  EXPECT_THAT(report, HasSubstr("Number of excluded observations  :  2\n"));
  EXPECT_THAT(report, HasSubstr("ATTENTION: Not in the project: image point"));
}

}  // namespace
}  // namespace vorn
