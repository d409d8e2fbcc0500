// The table of observations against the images that add theirs one after the other.

#include <cmath>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "geometry/ext_orientation.h"
#include "geometry/linear_geometries.h"
#include "support/captured_output.h"
#include "support/project_test.h"

namespace vorn {
namespace {

// What one of the two ways makes of the observations.
struct Sums {
  Matrix normal;
  Vector rhs;
  double lPl = 0.0;
  std::int32_t count = 0;
  bool added = false;
  std::string output;
};

template <class Add>
Sums sums_of(NormalMatrix& normal, Add add) {
  Sums sums;
  sums.rhs.resize(normal.size());
  sums.rhs.zero();
  sums.output = test::captured_output([&] { sums.added = add(sums); });
  sums.normal.resize(normal.size(), normal.size());
  for (std::int32_t i = 0; i < normal.size(); ++i) {
    for (std::int32_t j = i; j < normal.size(); ++j) sums.normal[i][j] = normal.at(i, j);
  }
  return sums;
}

Sums by_table(BundleProject& p) {
  p.observations.set_up(p.images, p.object_points, p.normal);
  return sums_of(p.normal,
                 [&p](Sums& s) { return p.observations.add(p.normal, s.rhs, s.lPl, s.count); });
}

Sums by_images(BundleProject& p) {
  p.normal.zero();
  return sums_of(p.normal, [&p](Sums& s) {
    for (const BundleImage& image : p.images) {
      if (image.add_observations(p.object_points, p.normal, s.rhs, s.lPl, s.count) != 1)
        return false;
    }
    return true;
  });
}

void expect_same(const Sums& a, const Sums& b) {
  EXPECT_TRUE(a.added && b.added);
  EXPECT_EQ(a.count, b.count);
  EXPECT_EQ(a.output, b.output);
  EXPECT_NEAR(a.lPl, b.lPl, 1e-12 * b.lPl);
  for (std::int32_t i = 0; i < b.rhs.size(); ++i) {
    EXPECT_NEAR(a.rhs[i], b.rhs[i], 1e-12 * std::sqrt(b.normal[i][i] * b.lPl)) << i;
    for (std::int32_t j = i; j < b.rhs.size(); ++j) {
      const double scale = std::sqrt(b.normal[i][i] * b.normal[j][j]);
      EXPECT_NEAR(a.normal[i][j], b.normal[i][j], 1e-12 * scale) << i << ' ' << j;
    }
  }
}

// All types of cameras and sets, too many unknowns for the dense routines, and a number of points
// that no batch or pack divides; with corrections, which linear geometries do not take, or with all
// types of geometries.
class ObservationTableTest : public test::ProjectTest, public testing::WithParamInterface<bool> {
 protected:
  ObservationTableTest()
      : ProjectTest({.cameras = {"camera-frame", "camera-ccd", "camera-ccd-tr", "camera-pushbroom"},
                     .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion", "ext-ori-pok-rot",
                                      "ext-ori-australis", "ext-ori-opk-fix",
                                      GetParam() ? "ext-ori-opk-rot" : "dlt",
                                      GetParam() ? "ext-ori-pok-rot" : "pmf-linear"},
                     .ap_sets = {"gap", "p12", "p44", "in-plane-dist", "radial-dist", "australis",
                                 "inner-or", "decentering-dist", "out-of-plane-dist"},
                     .images = 21,
                     .points = 101,
                     .triples = GetParam() ? std::size_t{2} : 0}) {}

  template <class Check>
  void after_run(Check check) {
    bool checked = false;
    run_project({.path = control_file_, .inspect = [&](const BundleProject& project) {
                   ASSERT_FALSE(project.observations.is_empty());
                   // The project itself is not constant.
                   check(const_cast<BundleProject&>(project));
                   checked = true;
                 }});
    EXPECT_TRUE(checked) << dir_.read("project.out");
  }
};

TEST_P(ObservationTableTest, AddsWhatTheImagesAdd) {
  after_run([](BundleProject& p) {
    expect_same(by_table(p), by_images(p));
    ImagePoint& lost = *p.images[1]->points[3];
    lost.object_point = nullptr;
    lost.id = "lost";
    const Sums sums = by_table(p);
    EXPECT_EQ(sums.output, "ATTENTION: Object point lost not found.\n");
    expect_same(sums, by_images(p));
  });
}

TEST_P(ObservationTableTest, LeavesFailuresToTheImages) {
  after_run([](BundleProject& p) {
    const auto expect_failure = [&p](const char* message) {
      const Sums table = by_table(p);
      EXPECT_FALSE(table.added);
      EXPECT_EQ(table.output, "");
      const Sums images = by_images(p);
      EXPECT_FALSE(images.added);
      EXPECT_EQ(images.output, message);
    };
    for (const double sy : {0.0, 1e200}) {
      p.images[20]->points[7]->sy = sy;
      expect_failure("ERROR: Decomposition of weight matrix failed.\n");
    }
    if (auto* const transformation = dynamic_cast<DirectLinearTransf*>(p.images[5]->geometry)) {
      p.images[5]->points[7]->object_point->xyz = {1.0, 0.0, 0.0};
      transformation->value(8) = -1.0;
      EXPECT_EQ(test::captured_errors([&p] { EXPECT_FALSE(by_table(p).added); }), "");
    }
    const auto& station = dynamic_cast<const ExtOrientation&>(*p.images[0]->geometry);
    p.images[0]->points[7]->object_point->xyz = station.projection_centre();
    expect_failure("ERROR: ExtOrientation::get_derivs: Zero denominator.\n");
  });
}

INSTANTIATE_TEST_SUITE_P(WithCorrections, ObservationTableTest, testing::Bool());

}  // namespace
}  // namespace vorn
