// The point nearest to rays.

#include "geometry/ray_bundle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace vorn {
namespace {

TEST(RayBundle, FindsWhereRaysMeet) {
  // A block in a national grid, from which rays of any length and sense lead to one point.
  const Vec3 point = {512345.25, 5412345.5, 432.125};
  const std::vector<Vec3> centres = {{512300, 5412300, 1400},
                                     {512420, 5412310, 1405},
                                     {512330, 5412400, 1395},
                                     {513000, 5412300, 1420}};
  RayBundle rays;
  double length_of_ray = 1e-3;
  for (const Vec3& centre : centres) {
    rays.add(centre, length_of_ray * (point - centre));
    length_of_ray *= -30.0;
  }
  const auto found = rays.nearest_point(1e-7);
  ASSERT_TRUE(found);
  EXPECT_LT(length(*found - point), 2e-9);
}

TEST(RayBundle, LiesBetweenRaysThatMissOneAnother) {
  RayBundle rays;
  rays.add({0, 0, 0}, {2, 0, 0});
  rays.add({5, -7, 3}, {0, 1, 0});
  const auto found = rays.nearest_point(0.5);
  ASSERT_TRUE(found);
  EXPECT_LT(length(*found - Vec3{5, 0, 1.5}), 1e-12) << "midway on the common perpendicular";
  rays.add({5, 0, 100}, {0, 0, 1});
  EXPECT_LT(length(*rays.nearest_point(0.5) - Vec3{5, 0, 1.5}), 1e-12) << "a ray through it";
}

// Two rays at the angle itself pass, and so do more rays at a smaller one, which fix it as well.
TEST(RayBundle, NeedsAnAngleBetweenTheRays) {
  const auto bundle = [](double sine, int pairs) {
    RayBundle rays;
    for (int k = 0; k < pairs; ++k) {
      rays.add({1, 2, 3}, {0, 0, -1});
      rays.add({1, 2, 3}, {sine, 0, -std::sqrt(1 - sine * sine)});
    }
    return rays;
  };
  for (const double sine : {1.0, 0.1, 1e-3, 1e-6}) {
    EXPECT_TRUE(bundle(sine, 1).nearest_point(0.999 * sine)) << sine;
    EXPECT_FALSE(bundle(sine, 1).nearest_point(1.001 * sine)) << sine;
    EXPECT_FALSE(bundle(sine, 4).nearest_point(2.1 * sine)) << sine;
  }
  EXPECT_TRUE(bundle(1e-3, 4).nearest_point(1.9e-3));
  EXPECT_FALSE(bundle(0.0, 3).nearest_point(1e-7)) << "parallel";
}

TEST(RayBundle, HasNoPointWithoutRaysThatAreNumbers) {
  RayBundle rays;
  EXPECT_FALSE(rays.nearest_point(0.0)) << "no ray";
  rays.add({1, 2, 3}, {0, 0, 1});
  EXPECT_FALSE(rays.nearest_point(1e-7)) << "one ray";
  for (const double wrong : {std::numeric_limits<double>::infinity(), std::nan("")}) {
    RayBundle with = rays;
    with.add({1, wrong, 3}, {1, 0, 0});
    EXPECT_FALSE(with.nearest_point(1e-7)) << "centre " << wrong;
    with = rays;
    with.add({0, 0, 0}, {1, 0, wrong});
    EXPECT_FALSE(with.nearest_point(1e-7)) << "direction " << wrong;
  }
  rays.add({0, 0, 0}, {0, 0, 0});
  EXPECT_FALSE(rays.nearest_point(1e-7)) << "a direction without length";
}

}  // namespace
}  // namespace vorn
