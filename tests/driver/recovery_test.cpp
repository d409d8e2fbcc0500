// Noisy synthetic blocks: the adjustment finds what was put in, with the precision it states.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "support/captured_output.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

namespace vorn {
namespace {

using test::SyntheticSpec;

struct Block {
  std::string name;
  SyntheticSpec spec;
};

void PrintTo(const Block& block, std::ostream* out) { *out << block.name; }

std::vector<Block> all_blocks() {
  const auto words = [](const std::string& text) {
    std::istringstream in(text);
    return std::vector<std::string>(std::istream_iterator<std::string>(in), {});
  };
  const auto cameras = words("camera-frame camera-ccd camera-ccd-tr camera-pushbroom");
  const auto central =
      words("ext-ori-opk-rot ext-ori-pok-rot ext-ori-opk-fix ext-ori-australis ext-ori-quaternion");
  const auto models = words(
      "gap australis p12 p44 inner-or radial-dist decentering-dist in-plane-dist "
      "out-of-plane-dist");
  std::vector<Block> blocks;
  const auto add = [&blocks](const std::string& name, SyntheticSpec spec) {
    spec.seed = 100 + blocks.size();
    blocks.push_back({name, spec});
  };
  std::size_t model = 0;
  for (const std::string& camera : cameras) {
    for (const std::string& orientation : central) {
      const std::string& ap_set = models[model++ % models.size()];
      add(camera + '_' + orientation + '_' + ap_set,
          {.cameras = {camera}, .orientations = {orientation}, .ap_sets = {ap_set}});
      const bool quaternion = orientation == "ext-ori-quaternion";
      add(camera + '_' + orientation + "_corrections", {.cameras = {camera},
                                                        .orientations = {orientation},
                                                        .position_triples = 3,
                                                        .attitude_triples = quaternion ? 0 : 3});
    }
    add(camera + "_dlt", {.cameras = {camera}, .orientations = {"dlt"}, .images = 5});
    add(camera + "_pmf", {.cameras = {camera}, .orientations = {"pmf-linear"}, .images = 5});
  }
  add("mixture",
      {.cameras = cameras,
       .orientations = words("ext-ori-quaternion dlt ext-ori-australis pmf-linear ext-ori-pok-rot"),
       .ap_sets = words("radial-dist gap decentering-dist in-plane-dist inner-or"),
       .images = 20,
       .angle_unit = "rad"});
  return blocks;
}

class Recovery : public testing::TestWithParam<Block> {};

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

TEST_P(Recovery, FindsTruthAndNoise) {
  const SyntheticSpec& spec = GetParam().spec;
  const test::TempDir dir;
  const test::LSParamsGuard guard;
  const test::SyntheticProject synthetic = make_synthetic_project(spec);
  const std::string path = synthetic.write(dir);
  RunSummary summary;
  const std::string output = test::captured_output([&] {
    summary = run_project(path, false, [&](const BundleProject& project) {
      expect_true_parameters(project, synthetic);
    });
  });
  ASSERT_EQ(summary.result, 1) << output << dir.read("project.out");
  EXPECT_LT(summary.iterations, 20);
  EXPECT_GT(summary.redundancy, 200);
  const double spread = 1.0 / std::sqrt(2.0 * summary.redundancy);
  EXPECT_NEAR(summary.sigma0 / spec.sigma_image, 1.0, 4.0 * spread);
}

INSTANTIATE_TEST_SUITE_P(SyntheticBlocks, Recovery, testing::ValuesIn(all_blocks()),
                         [](const testing::TestParamInfo<Block>& block) {
                           std::string name = block.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
}  // namespace vorn
