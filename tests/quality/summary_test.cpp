// Variance components, global test and suspects of results that are written down by hand.

#include "quality/summary.h"

#include <gmock/gmock.h>

#include <cmath>
#include <string>
#include <vector>

#include "geometry/eo_angles.h"
#include "sensors/camera.h"

namespace vorn {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kSigma0 = 5e-6;

// Two cameras, three images, a control point, an orientation and a set; all numbers that summaries
// read are given.
class Summaries : public testing::Test {
 protected:
  Summaries() {
    results_.settings.sigma0_prior = kSigma0;
    for (std::size_t i = 0; i < 2; ++i) cameras_[i].id = i == 0 ? "K1" : "K2";
    for (std::size_t i = 0; i < 3; ++i) {
      images_[i].id = "I" + std::to_string(i);
      images_[i].camera = &cameras_[i == 1 ? 1 : 0];
      results_.images.push_back({.image = &images_[i], .first = 2 * i, .points = 2});
    }
    control_.std_devs = {0.01, 0.01, 0.02};
    for (AdjObject* object : std::initializer_list<AdjObject*>{&control_, &orientation_}) {
      object->init_params();
    }
  }
  void observe(const AdjObject& object, std::int32_t k, double v, double r) {
    results_.observed_parameters.push_back({{&object, k}, v, r});
  }
  std::string groups() const {
    std::string names;
    for (const GroupResult& group : results_.groups) {
      names += std::string(group.group) + (group.id.empty() ? "" : " " + group.id) + ", ";
    }
    return names;
  }

  Camera cameras_[2];
  BundleImage images_[3];
  ObjectPoint control_;
  EOAngles orientation_{kAnglesOPKRot};
  std::vector<ImagePoint> points_;
  QualityResults results_;
};

TEST_F(Summaries, GroupsShareAnAccuracy) {
  const double sums[][2] = {{3.0, 4.5}, {2.5, 2.0}, {1.0, 0.5}};  // redundancy, v'Pv/sigma0^2
  for (std::size_t i = 0; i < 3; ++i) {
    results_.images[i].redundancy = sums[i][0];
    results_.images[i].vtpv = sums[i][1] * kSigma0 * kSigma0;
  }
  for (std::int32_t k = 0; k < 3; ++k) {
    control_.xyz[static_cast<std::size_t>(k)] = 0.0;
    observe(control_, k, k == 2 ? 0.04 : 0.01, 0.25 * (k + 1));
  }
  for (std::int32_t k : {0, 3}) {
    orientation_.std_dev(k) = k == 0 ? 0.1 : 1e-3;
    orientation_.init_params();
    observe(orientation_, k, k == 0 ? 0.05 : 0.0, k == 0 ? 1e-9 : 0.5);
  }
  results_.constraints.push_back({});
  find_groups(results_);
  EXPECT_EQ(groups(),
            "image_coordinates K1, image_coordinates K2, control_horizontal, control_height, "
            "orientation_position, orientation_rotation, constraints, ");
  const GroupResult& first = results_.groups[0];
  EXPECT_EQ(first.observations, 8);
  EXPECT_DOUBLE_EQ(first.redundancy, 4.0);
  EXPECT_DOUBLE_EQ(first.factor, 5.0 / 4.0);
  EXPECT_DOUBLE_EQ(first.sd_factor, std::sqrt(5.0 / 4.0));
  // The band holds 95 % : chi-square with four degrees of freedom, from tables.
  EXPECT_NEAR(first.factor_lower, 5.0 / 11.1433, 1e-4);
  EXPECT_NEAR(first.factor_upper, 5.0 / 0.484419, 1e-3);
  const GroupResult& horizontal = results_.groups[2];
  EXPECT_EQ(horizontal.observations, 2);
  EXPECT_DOUBLE_EQ(horizontal.redundancy, 0.75);
  EXPECT_DOUBLE_EQ(horizontal.vtpv, 2.0 * kSigma0 * kSigma0);
  EXPECT_DOUBLE_EQ(results_.groups[3].vtpv, 4.0 * kSigma0 * kSigma0);
  // Nothing checks the position of the orientation.
  EXPECT_FALSE(is_defined(results_.groups[4].factor));
  EXPECT_TRUE(is_defined(results_.groups[5].factor));
}

TEST(GlobalTests, HaveTwoSides) {
  const GlobalTest test = global_test(12.0, 10, 0.95);
  EXPECT_NEAR(test.lower, 3.24697, 1e-5);  // from tables
  EXPECT_NEAR(test.upper, 20.4832, 1e-4);
  EXPECT_TRUE(test.passed);
  EXPECT_FALSE(global_test(3.2, 10, 0.95).passed);
  EXPECT_FALSE(global_test(20.5, 10, 0.95).passed);
  EXPECT_TRUE(global_test(20.5, 10, 0.99).passed);
  EXPECT_FALSE(is_defined(global_test(0.0, 0, 0.95).statistic));
}

TEST_F(Summaries, SuspectsAreRankedByProbability) {
  constexpr double kS = 4e-6;
  const auto measure = [&](std::size_t image, double wx, double wy, double r) {
    ImagePointResult row;
    row.image = static_cast<std::int32_t>(image);
    row.point = &points_.emplace_back();
    points_.back().id = "P" + std::to_string(points_.size());
    row.s = {kS, kS};
    row.r = {r, r};
    row.v = {wx * kS * std::sqrt(r), wy * kS * std::sqrt(r)};
    results_.image_points.push_back(row);
  };
  points_.reserve(8);
  measure(0, 3.0, 2.0, 0.5);          // t = 13, below the limit of two degrees of freedom, 13.8
  measure(0, 3.0, 2.5, 0.5);          // t = 15.25
  measure(1, 0.0, -9.0, 0.2);         // t = 81
  measure(1, 50.0, 0.0, 1e-9);        // not checked
  observe(control_, 0, -0.04, 0.64);  // t = 25
  observe(control_, 1, 0.025, 0.64);  // t = 9.8, below 10.8
  find_suspects(results_);
  std::vector<std::string> found;
  for (const SuspectResult& suspect : results_.suspects) {
    found.push_back(suspect.image_point != nullptr ? suspect.image_point->id
                                                   : parameter_name(suspect.parameter));
  }
  EXPECT_THAT(found, ElementsAre("P3", "X", "P2"));
  EXPECT_NEAR(results_.suspects[0].test.log10_p, -40.5 / std::log(10.0), 1e-9);
  EXPECT_EQ(results_.suspects[1].test.degrees_of_freedom, 1);
  EXPECT_EQ(results_.num_suspects, 3U);
  results_.image_points.clear();
  results_.observed_parameters.clear();
  results_.suspects.clear();
  find_suspects(results_);
  EXPECT_THAT(results_.suspects, IsEmpty());
}

}  // namespace
}  // namespace vorn
