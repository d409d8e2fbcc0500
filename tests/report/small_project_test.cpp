// Checks and summaries at their limits; the expected files of whole projects show the usual ones.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "driver/bundle_project.h"
#include "report/point_analysis.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::written_text;
using testing::HasSubstr;

// Image coordinates are the object coordinates X and Y: residuals follow by subtraction. Points of
// negative height have none.
class FlatGeometry : public ImageGeometry {
 public:
  FlatGeometry() : ImageGeometry(0) { id = "G"; }
  bool projection(const Vec3& object_point, Vec3& image) const override {
    if (object_point[2] < 0.0) error_output() << "none at " << general()(object_point[0]) << '\n';
    image = {object_point[0], object_point[1], image[2]};
    return true;
  }
  // The mean of both, at a height that tells how often rays were intersected.
  bool intersection(const ImageGeometry&, const Vec3& a, const Vec3& b, Vec3& point,
                    double& gap) const override {
    point = {0.5 * (a[0] + b[0]), 0.5 * (a[1] + b[1]), static_cast<double>(++times_)};
    gap = 0.5 * std::fabs(a[0] - b[0]);
    return true;
  }
  bool get_derivs(const Vec3&, const Vec3&, PointDerivs&) override { return false; }

 private:
  mutable int times_ = 0;
};

// A and B are in three images, S, P and Q in one, N in none; I4 has no points. S is fully
// controlled, P in plan only, and M, measured in I1, does not exist.
class SmallProject : public testing::Test {
 protected:
  SmallProject() {
    TokenReader cameras("camera-frame C - 100 0 0 200 200");
    TokenReader images(
        "image-frame I1 G C image-frame I2 G C image-frame I3 G C image-frame I4 G C");
    TokenReader coords(
        "I1 1 A .009980 .02 1e-6 1e-6 B .030003 .040015 2e-6 .5e-6 S 0 0 1e-6 1e-6 M 0 0 1 1 -1 "
        "I2 1 A .01 .02 1 1 B .03 .04 1 1 P 0 0 1 1 -1 I3 1 Q 0 0 1 1 B .03 .04 1 1 A .01 .02 1 1");
    TokenReader points(
        "common-sdev 1e31 1e31 1e31 A .01 .02 0 B .03 .04 0 S 0 0 0 P 0 0 0 N 0 0 0 Q 0 0 0");
    TokenReader roles("S co xyz P co xy stop-dep");
    project_.image_geometries.append(std::make_unique<FlatGeometry>());
    EXPECT_EQ(read_camera_file(cameras, project_.cameras), 1);
    EXPECT_EQ(read_image_file(images, project_.images, project_.cameras), 1);
    EXPECT_EQ(read_image_crds_file(coords, project_.images), 1);
    EXPECT_EQ(read_obj_crds(points, project_.object_points), 1);
    EXPECT_EQ(read_ctrl_supp(roles, project_.object_points), 1);
    for (BundleImage& image : project_.images) {
      image.used = image.attach_geometry(project_.image_geometries);
    }
  }
  bool has_point(const char* id) const { return project_.object_points.find(id) != nullptr; }

  BundleProject project_;
};

TEST_F(SmallProject, SingleRaysNeedThreeObservedCoordinatesAndTheirOption) {
  project_.options.single_ray = true;
  project_.object_points.find("S")->std_devs = {1e30, 1e-31, 1};
  project_.object_points.find("P")->std_devs = {1, 1, 1.1e30};
  project_.object_points.find("Q")->std_devs = {1, std::numeric_limits<double>::quiet_NaN(), 1};
  project_.check_rays_per_point(nullptr);
  EXPECT_TRUE(has_point("S") && !has_point("P") && !has_point("Q") && !has_point("N"));
  project_.options.single_ray = false;
  project_.check_rays_per_point(nullptr);
  EXPECT_EQ(project_.object_points.count(), 2);
  const std::string images =
      written_text([&](TextWriter& out) { project_.check_rays_per_image(&out); });
  EXPECT_THAT(images, HasSubstr("I1: 3\nI2: 2 -> removed\nI3: 2 -> removed\nI4: 0 -> removed\n"));
}

// A slot that is empty ends neither the listing nor the check.
TEST_F(SmallProject, ChecksImagesBehindRemovedOnes) {
  project_.images.remove(0);
  const std::string images =
      written_text([&](TextWriter& out) { project_.check_rays_per_image(&out); });
  EXPECT_THAT(images, HasSubstr("I4: 0 -> removed\n"));
  EXPECT_EQ(project_.images.find("I4"), nullptr);
  ASSERT_EQ(project_.removed_objects.size(), 1U);
  EXPECT_EQ(project_.removed_objects[0].id, "I4");
  EXPECT_EQ(project_.removed_objects[0].reason, RemovalReason::too_few_points);
  EXPECT_EQ(project_.removed_objects[0].count, 0);
  EXPECT_EQ(project_.images.count(), 2);
}

// Points without coordinates come from all pairs of their rays, once; single rays give none.
TEST_F(SmallProject, IntersectsWhatHasNoCoordinates) {
  for (const char* const id : {"A", "B", "S"}) project_.object_points.find(id)->has_coords = false;
  project_.check_approximations(nullptr);  // M gets a point
  const auto intersect = [this] {
    return written_text(
        [&](TextWriter& out) { EXPECT_EQ(project_.intersect_approximations(&out, false), 1); });
  };
  const std::string listing = intersect();
  EXPECT_THAT(listing, HasSubstr("Point: A by           I1           I2           I3 [3]\n"));
  EXPECT_THAT(listing, HasSubstr("Number of intersection points : 2\n"));
  const ObjectPoint& a = *project_.object_points.find("A");
  EXPECT_NEAR(a.xyz[0], (0.00998 + 2 * 0.01) / 3, 1e-12);
  EXPECT_EQ(a.xyz[2], 2.0);  // of three pairs
  EXPECT_EQ(project_.object_points.find("B")->xyz[2], 5.0);
  EXPECT_FALSE(project_.object_points.find("S")->has_coords);
  EXPECT_THAT(intersect(), HasSubstr("Number of intersection points : 0\n"));
  EXPECT_EQ(a.xyz[2], 2.0);
}

TEST_F(SmallProject, ResidualsWithoutPointsAndRedundancy) {
  const auto section = [&] {
    TextWriter no_file;
    return written_text([&](TextWriter& out) { project_.write_residuals(no_file, out); });
  };
  project_.redundancy = 4;
  EXPECT_THAT(section(), HasSubstr("         A       20.00       0.00      20.00\n"
                                   "         B       -3.00     -15.00      15.30\n"
                                   "ATTENTION: Object point M not found\n\n"
                                   "Number of points       :   3\n"));
  // A: 20^2 + 0; B: 3^2 / 2^2 + 15^2 / 0.5^2 [um^2].
  EXPECT_THAT(section(),
              HasSubstr("Contribution to vtpv and sigma 0:   1.302e-09 m^2   18.04 um\n"));
  EXPECT_THAT(section(), HasSubstr("Number of points       :   0\n"
                                   "RMS of residuals       :         -nan         -nan\n"
                                   "Average of residuals   :         -nan         -nan\n"));
  for (const std::int32_t redundancy : {0, -3}) {
    project_.redundancy = redundancy;
    EXPECT_THAT(section(), HasSubstr(" m^2   undefined, no redundancy!\nRedundancy :   " +
                                     std::to_string(redundancy) + "\n\n"));
  }
}

// As if they were formed for the file and once more for the section.
TEST_F(SmallProject, SaysTwiceWhatResidualsMeet) {
  project_.object_points.find("A")->xyz[2] = project_.object_points.find("B")->xyz[2] = -1.0;
  const std::string errors = test::captured_errors([&] {
    TextWriter no_file;
    project_.write_residuals(no_file, no_file);
  });
  std::string once;
  for (const char* const x : {"0.01", "0.03", "0.01", "0.03", "0.03", "0.01"}) {
    once += std::string("none at ") + x + '\n';
  }
  EXPECT_EQ(errors, once + once);
}

// Points that go take their rays along: images may not keep pointers to them.
TEST_F(SmallProject, ForgetsWhatItRemoves) {
  for (const BundleImage& image : project_.images) {
    for (ImagePoint& point : image.points) {
      point.object_point = project_.object_points.find(point.id);
    }
  }
  for (ObjectPoint& point : project_.object_points) point.used = point.id == "A";
  for (BundleImage& image : project_.images) image.used = image.id != "I4";
  project_.cameras.find("C")->used = true;
  const std::string section = written_text([&](TextWriter& out) { project_.clean_up(&out); });
  EXPECT_THAT(section, HasSubstr("  - images            : 1\n"));
  EXPECT_THAT(section, HasSubstr("  - object points     : 5\n"));
  EXPECT_EQ(project_.object_points.count(), 1);
  EXPECT_EQ(project_.images.find("I4"), nullptr);
  for (const BundleImage& image : project_.images) {
    for (const ImagePoint& point : image.points) EXPECT_EQ(point.object_point, nullptr);
  }
  std::vector<std::string> removed;
  for (const Removal& removal : project_.removed_objects) {
    EXPECT_EQ(removal.reason, RemovalReason::unused);
    removed.push_back(std::string(removal.kind) + " " + removal.id);
  }
  EXPECT_THAT(removed, testing::ElementsAre("image I4", "object point B", "object point S",
                                            "object point P", "object point N", "object point Q"));
}

// Signs, extremes and means of what was read against what was adjusted, and which components count.
TEST(PointDifferences, OfCheckAndControlPoints) {
  OwnedList<ObjectPoint> points;
  TokenReader coords(
      "indiv-sdev A 1 2 3 0.1 0.1 1e31 B 10 20 30 0.1 1e-31 0.1 C 5 5 5 0.1 0.1 0.1 "
      "D 6 6 6 0.1 0.1 0.1 E 7 7 7 1e31 1e31 1e31");
  TokenReader roles("C ch xy D ch z stop-dep");
  ASSERT_EQ(read_obj_crds(coords, points), 1);
  ASSERT_EQ(read_ctrl_supp(roles, points), 1);
  for (ObjectPoint& point : points) point.init_params();
  points.find("A")->xyz = {1.5, 1.75, 9.0};
  points.find("B")->xyz = {9.0, 99.0, 30.125};
  points.find("C")->xyz = {5.25, 4.0, 8.0};
  points.find("D")->xyz = {9.0, 9.0, 4.5};
  const PointDifferences residuals = compute_control_residuals(points);
  ASSERT_EQ(residuals.points.size(), 2U);
  EXPECT_EQ(residuals.points[0].compared, (std::array<bool, 3>{true, true, false}));
  EXPECT_EQ(residuals.points[1].compared, (std::array<bool, 3>{true, false, true}));
  const auto& [x, y, z] = residuals.statistics;
  EXPECT_EQ(x.count, 2);
  EXPECT_EQ(x.max, 1.0);  // of a negative one
  EXPECT_EQ(x.mean(), -0.25);
  EXPECT_EQ(x.rms(), std::sqrt(0.625));
  EXPECT_EQ(y.count, 1);
  EXPECT_EQ(y.mean(), -0.25);
  EXPECT_EQ(z.mean(), 0.125);
  const PointDifferences differences = compute_check_differences(points);
  ASSERT_EQ(differences.points.size(), 2U);
  EXPECT_EQ(differences.points[0].point->id, "C");
  EXPECT_EQ(differences.points[0].compared, (std::array<bool, 3>{true, true, false}));
  EXPECT_EQ(differences.points[0].difference[0], -0.25);
  EXPECT_EQ(differences.points[0].difference[1], 1.0);
  EXPECT_EQ(differences.points[1].compared, (std::array<bool, 3>{false, false, true}));
  EXPECT_EQ(differences.statistics[2].mean(), 1.5);
  EXPECT_EQ(DifferenceStatistics().rms(), 0.0);
}

}  // namespace
}  // namespace vorn
