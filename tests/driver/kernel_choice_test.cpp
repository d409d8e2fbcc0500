// Whole projects with each version of the kernels.

#include <filesystem>
#include <map>

#include "lsq/linalg/kernels.h"
#include "support/project_test.h"
#include "support/text_compare.h"

namespace vorn {
namespace {

using test::SyntheticSpec;

// All files of a run and what it prints, without times.
using Files = std::map<std::string, std::string>;

// A project of more unknowns than the dense routines take.
Files run_with(const std::string& kernels, SyntheticSpec spec) {
  EXPECT_TRUE(use_kernels(kernels));
  spec.seed = 11;
  const test::TempDir dir;
  make_synthetic_project(spec).write(dir);
  ls_params() = LSParams();
  const test::BundleRun run = test::run_bundle(dir.path("project.ctl"), 1);
  EXPECT_EQ(run.result, 1) << run.output;
  EXPECT_TRUE(use_kernels(""));
  Files files = {{"standard output", run.output}};
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    files[entry.path().filename().string()] = test::without_times(test::file_text(entry.path()));
  }
  return files;
}

class KernelChoice : public testing::TestWithParam<SyntheticSpec> {};

TEST_P(KernelChoice, ProcessorsThatFuseEndWithTheSameBytes) {
  if (avx512_kernels() == nullptr) GTEST_SKIP() << "the processor has one kind of fused kernels";
  EXPECT_EQ(run_with("avx2", GetParam()), run_with("avx512", GetParam()));
}

TEST_P(KernelChoice, WithoutFusingTheLastDigitsMayDiffer) {
  const Files widest = run_with("", GetParam());
  const Files baseline = run_with("baseline", GetParam());
  ASSERT_EQ(widest.size(), baseline.size());
  for (const auto& [name, text] : baseline) {
    EXPECT_EQ(test::first_difference(widest.at(name), text), "") << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Projects, KernelChoice,
    testing::Values(SyntheticSpec{.cameras = {"camera-frame"},
                                  .orientations = {"ext-ori-opk-rot"},
                                  .ap_sets = {"p12"},
                                  .images = 9,
                                  .points = 120},
                    SyntheticSpec{.cameras = {"camera-ccd", "camera-pushbroom"},
                                  .orientations = {"ext-ori-pok-rot", "ext-ori-quaternion"},
                                  .ap_sets = {"gap"},
                                  .images = 6,
                                  .points = 100,
                                  .triples = 1}));

TEST(Kernels, RefusesWhatDoesNotExist) {
  EXPECT_FALSE(use_kernels("sse9"));
  ASSERT_TRUE(use_kernels("baseline"));
  EXPECT_STREQ(kernels().name, "baseline");
  EXPECT_TRUE(use_kernels(""));
}

}  // namespace
}  // namespace vorn
