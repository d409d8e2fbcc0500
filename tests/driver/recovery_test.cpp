// Noisy synthetic blocks: the adjustment finds what was put in, with the precision it states.

#include <algorithm>
#include <cmath>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "support/project_test.h"

namespace vorn {
namespace {

using test::SyntheticSpec;

const std::vector<std::string> kCameras = {"camera-frame", "camera-ccd", "camera-ccd-tr",
                                           "camera-pushbroom"};

// Errors of the estimates in units of their own standard deviations, from the inverse of N.
void expect_true_parameters(const BundleProject& project, const test::SyntheticProject& synthetic) {
  Matrix cofactors;
  ASSERT_EQ(project.solver->invert(project.normal, cofactors, project.markers), 0);
  double sum = 0.0;
  int count = 0;
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    const std::vector<double>& truth = synthetic.truth.at(object.id);
    ASSERT_EQ(truth.size(), object.num_params());
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(truth.size()); ++k) {
      const double error = *object.param(k).value - truth[static_cast<std::size_t>(k)];
      if (object.param(k).state == ParamState::eliminated) {
        EXPECT_NEAR(error, 0.0, 1e-10);
        continue;
      }
      const std::int32_t g = object.index + k;
      const double ratio = error / (ls_params().sigma0_apriori * std::sqrt(cofactors[g][g]));
      EXPECT_LT(std::fabs(ratio), 4.8) << object.id << ' ' << object.get_param_name(k);
      sum += ratio * ratio;
      ++count;
    }
  }
  EXPECT_GT(count, 100);
  EXPECT_GT(sum / count, 0.5);
  EXPECT_LT(sum / count, 2.5);
}

void expect_truth_and_noise(SyntheticSpec spec) {
  static std::uint64_t seed = 100;
  spec.seed = seed++;
  SCOPED_TRACE(spec.orientations[0] + (spec.ap_sets.empty() ? "" : ", " + spec.ap_sets[0]) +
               (spec.triples > 0 ? ", corrections" : ""));
  const test::TempDir dir;
  const test::SyntheticProject synthetic = make_synthetic_project(spec);
  synthetic.write(dir);
  ls_params() = LSParams();
  RunSummary summary;
  const std::string output = test::captured_output([&] {
    summary = run_project(dir.path("project.ctl"), false, [&](const BundleProject& project) {
      expect_true_parameters(project, synthetic);
    });
  });
  ASSERT_EQ(summary.result, 1) << output << dir.read("project.out");
  EXPECT_LT(summary.iterations, 20);
  EXPECT_GT(summary.redundancy, 200);
  const double spread = 1.0 / std::sqrt(2.0 * summary.redundancy);
  EXPECT_NEAR(summary.sigma0 / test::kSigmaImage, 1.0, 4.0 * spread);
}

class Recovery : public testing::TestWithParam<std::size_t> {};

TEST_P(Recovery, FindsTruthAndNoiseOfAllModels) {
  const std::string camera = kCameras[GetParam()];
  const char* const models[] = {"gap",           "australis",        "p12",
                                "p44",           "inner-or",         "radial-dist",
                                "in-plane-dist", "decentering-dist", "out-of-plane-dist"};
  // Each model meets two cameras at least.
  std::size_t model = 5 * GetParam();
  for (const char* orientation : {"ext-ori-opk-rot", "ext-ori-pok-rot", "ext-ori-opk-fix",
                                  "ext-ori-australis", "ext-ori-quaternion"}) {
    const char* const ap_set = models[model++ % std::size(models)];
    expect_truth_and_noise(
        {.cameras = {camera}, .orientations = {orientation}, .ap_sets = {ap_set}});
    expect_truth_and_noise({.cameras = {camera}, .orientations = {orientation}, .triples = 3});
  }
  expect_truth_and_noise({.cameras = {camera}, .orientations = {"dlt"}, .images = 5});
  expect_truth_and_noise({.cameras = {camera}, .orientations = {"pmf-linear"}, .images = 5});
}

INSTANTIATE_TEST_SUITE_P(Cameras, Recovery, testing::Range(std::size_t{0}, kCameras.size()),
                         [](const auto& camera) {
                           std::string name = kCameras[camera.param];
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(Mixture, FindsTruthAndNoise) {
  expect_truth_and_noise(
      {.cameras = kCameras,
       .orientations = {"ext-ori-quaternion", "dlt", "ext-ori-australis", "pmf-linear",
                        "ext-ori-pok-rot"},
       .ap_sets = {"radial-dist", "gap", "decentering-dist", "in-plane-dist", "inner-or"},
       .images = 20});
}

}  // namespace
}  // namespace vorn
