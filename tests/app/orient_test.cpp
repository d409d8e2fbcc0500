// Approximate orientations of simulated images: the truth comes back, and what has none stays
// empty.

#include "app/orient.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <string>

#include "geometry/rotations.h"
#include "support/noise.h"

namespace vorn::app {
namespace {

using test::Noise;

// Points in a field of 200 by 200 by 30 about the origin.
std::map<std::string, Vec3> field(std::size_t count, Noise& noise) {
  std::map<std::string, Vec3> points;
  for (std::size_t i = 0; i < count; ++i) {
    points["p" + std::to_string(i)] = {noise.uniform(-100, 100), noise.uniform(-100, 100),
                                       noise.uniform(-15, 15)};
  }
  return points;
}

// An image that looks down from anywhere above, tilted by up to 0.4 and turned by any angle.
Orient look_down(const Vec3& centre, Noise& noise) {
  const Vec3 angles = {noise.uniform(-0.4, 0.4), noise.uniform(-0.4, 0.4),
                       noise.uniform(-3.1, 3.1)};
  return {centre, opk_rot::matrix_from_params(angles)};
}

// What the image shows of the points, with noise in parts of the focal length.
std::vector<OrientRay> rays_of(const Orient& image, const std::map<std::string, Vec3>& points,
                               double sigma, Noise& noise) {
  std::vector<OrientRay> rays;
  for (const auto& [id, xyz] : points) {
    const Vec3 u = transposed_times(image.rot_obj_from_img, xyz - image.centre);
    rays.push_back(
        {id, {-u[0] / u[2] + sigma * noise.normal(), -u[1] / u[2] + sigma * noise.normal(), -1.0}});
  }
  return rays;
}

// Greatest differences of the centre, and of the elements of the rotation.
double shift_of(const Orient& a, const Orient& b) {
  const Vec3 d = a.centre - b.centre;
  return std::sqrt(dot(d, d));
}
double turn_of(const Orient& a, const Orient& b) {
  double largest = 0.0;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      largest = std::max(largest, std::fabs(a.rot_obj_from_img[i][j] - b.rot_obj_from_img[i][j]));
    }
  }
  return largest;
}

TEST(Resection, FindsTheTruthWithoutApproximations) {
  struct Case {
    std::size_t points;
    double sigma;
    double shift;
    double turn;
  };
  // Four points may allow two orientations that agree; from five on the truth is alone.
  const Case cases[] = {{5, 0.0, 1e-6, 1e-8},
                        {10, 0.0, 1e-6, 1e-8},
                        {11, 0.0, 1e-6, 1e-8},
                        {60, 0.0, 1e-6, 1e-8},
                        {60, 1e-4, 0.2, 1e-3}};
  Noise noise(7);
  for (const Case& c : cases) {
    for (int scene = 0; scene < 20; ++scene) {
      const std::map<std::string, Vec3> points = field(c.points, noise);
      const Orient truth = look_down(
          {noise.uniform(-50, 50), noise.uniform(-50, 50), noise.uniform(150, 250)}, noise);
      const auto found = resect(rays_of(truth, points, c.sigma, noise), points);
      ASSERT_TRUE(found) << c.points << " points, scene " << scene;
      EXPECT_LT(shift_of(*found, truth), c.shift) << c.points << " points, scene " << scene;
      EXPECT_LT(turn_of(*found, truth), c.turn) << c.points << " points, scene " << scene;
    }
  }
}

TEST(Resection, PassesOverWrongPointsButNotMostOfThem) {
  Noise noise(8);
  const std::map<std::string, Vec3> points = field(40, noise);
  const Orient truth = look_down({10, -20, 180}, noise);
  const std::vector<OrientRay> right = rays_of(truth, points, 0.0, noise);
  for (const std::size_t wrong : {1U, 12U, 27U}) {
    std::vector<OrientRay> rays = right;
    for (std::size_t i = 0; i < wrong; ++i) {
      rays[i].vector = {noise.uniform(-0.6, 0.6), noise.uniform(-0.6, 0.6), -1.0};
    }
    const auto found = resect(rays, points);
    ASSERT_EQ(found.has_value(), wrong < 20) << wrong;
    if (found) {
      EXPECT_LT(shift_of(*found, truth), 0.5) << wrong;
    }
  }
}

TEST(Resection, RefusesWhatHasNoOrientation) {
  Noise noise(9);
  const std::map<std::string, Vec3> points = field(20, noise);
  const Orient truth = look_down({0, 0, 200}, noise);
  const std::vector<OrientRay> rays = rays_of(truth, points, 0.0, noise);
  EXPECT_FALSE(resect({rays.begin(), rays.begin() + 3}, points)) << "three points";
  EXPECT_FALSE(resect(rays, {})) << "unknown points";
  // From below a flat field looks as its mirrored image does from above; hills do not.
  std::map<std::string, Vec3> hills = points;
  for (auto& [id, xyz] : hills) xyz[2] *= 6.0;
  std::vector<OrientRay> mirrored = rays_of(truth, hills, 0.0, noise);
  EXPECT_TRUE(resect(mirrored, hills));
  for (OrientRay& ray : mirrored) ray.vector[2] = 1.0;
  EXPECT_FALSE(resect(mirrored, hills)) << "a mirrored image";
  std::map<std::string, Vec3> one_place = points;
  for (auto& [id, xyz] : one_place) xyz = {1, 2, 3};
  EXPECT_FALSE(resect(rays, one_place)) << "points in one place";
}

// A strip of images of which only the first two see control. Each of the others shows points that
// those before it show, too; the last one lacks a fourth.
TEST(OrientAll, GoesFromImageToImage) {
  Noise noise(10);
  constexpr std::size_t kImages = 9;
  constexpr double kBase = 60.0;
  std::vector<Orient> truth;
  std::vector<std::vector<OrientRay>> images(kImages);
  std::map<std::string, Vec3> control;
  for (std::size_t i = 0; i < kImages; ++i) {
    truth.push_back(look_down({kBase * static_cast<double>(i), 0, 150}, noise));
  }
  for (std::size_t k = 0; k < 30 * kImages; ++k) {
    const std::string id = "p" + std::to_string(k);
    const Vec3 xyz = {noise.uniform(-kBase, kBase * kImages), noise.uniform(-70, 70),
                      noise.uniform(-15, 15)};
    if (xyz[0] < kBase) control[id] = xyz;
    for (std::size_t i = 0; i < kImages; ++i) {
      const bool last = i == kImages - 1;
      if (std::fabs(xyz[0] - truth[i].centre[0]) > 1.5 * kBase || (last && images[i].size() == 3)) {
        continue;
      }
      images[i].push_back(rays_of(truth[i], {{id, xyz}}, 0.0, noise).front());
    }
  }
  std::vector<std::optional<Orient>> oriented(kImages);
  // One is given, and wrong: it stays as it is.
  oriented[7] = truth[7];
  oriented[7]->centre[2] += 1e-3;
  orient_all(images, control, oriented);
  for (std::size_t i = 0; i + 2 < kImages; ++i) {
    ASSERT_TRUE(oriented[i]) << i;
    EXPECT_LT(shift_of(*oriented[i], truth[i]), 0.1) << i;
    EXPECT_LT(turn_of(*oriented[i], truth[i]), 1e-3) << i;
  }
  EXPECT_EQ(oriented[7]->centre[2], truth[7].centre[2] + 1e-3);
  EXPECT_FALSE(oriented[kImages - 1]);
}

}  // namespace
}  // namespace vorn::app
