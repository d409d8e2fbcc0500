// Whole runs: compared with reviewed outputs, and of noisy synthetic blocks.

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "support/project_test.h"
#include "support/text_compare.h"

namespace vorn {
namespace {

using test::SyntheticSpec;

namespace fs = std::filesystem;

// The projects in tests/data and the examples in docs/file-formats.md; "T" stands for cpu times.

TEST(TextCompare, ForgivesLastDigitsOnly) {
  EXPECT_EQ(test::first_difference("a 9.999 -0.000 9.99e-01", "a10.001  0.000 1.00e+00"), "");
  const std::pair<const char*, const char*> other[] = {
      {"1.234", "1.238"},   {"1.2e-06", "1.2e-05"},     {" 1.50", "1.500"},
      {"p1 1.5", "p2 1.5"}, {"points: 7", "points: 8"}, {"5 ", "5"},
      {"a", "a\n\n"}};
  for (const auto& [a, b] : other) EXPECT_NE(test::first_difference(a, b), "") << a;
}

class WholeProject : public testing::TestWithParam<const char*> {};

TEST_P(WholeProject, WritesWhatIsExpected) {
  const test::TempDir dir;
  std::map<std::string, std::string> expected;
  for (const auto& entry : fs::directory_iterator(fs::path(VORN_SOURCE_DIR) / GetParam())) {
    if (entry.path().extension() != ".expected") {
      fs::copy(entry.path(), dir.path());
    } else {
      expected[entry.path().stem().string()] = test::file_text(entry.path());
    }
  }
  const test::BundleRun run = test::run_bundle(dir.path("project.ctl"), 1);
  EXPECT_EQ(run.result, 1);
  EXPECT_EQ(run.errors, "");
  dir.write("stdout", run.output);
  // Listings that no stage of a run prints.
  ls_params() = LSParams();
  test::captured_output([&] {
    run_project({.path = dir.path("project.ctl"), .inspect = [&](const BundleProject& project) {
                   TextWriter out;
                   EXPECT_TRUE(out.open(dir.path("lists")));
                   for (const APSet& set : project.ap_sets) {
                     set.print_grid_effects(out, project.options, project.cameras);
                   }
                   for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
                     project.unknowns[i].print_results(out);
                     project.unknowns[i].print_significance(out);
                   }
                   out.close();
                 }});
  });
  EXPECT_GE(expected.size(), 10U);
  for (const auto& [name, text] : expected) {
    EXPECT_EQ(test::first_difference(test::without_times(dir.read(name)), text), "") << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Data, WholeProject,
                         testing::Values("tests/data/frame-selfcal", "tests/data/mixed-models",
                                         "tests/data/pushbroom-drift"));

// Fenced blocks "```text tiny/NAME" are the project; "```text results/NAME" are its results, as far
// as a line "...".
TEST(FileFormats, ProjectOfThePageGivesItsResults) {
  const test::TempDir dir;
  std::map<std::string, std::string> results;
  const std::string page = test::file_text(VORN_SOURCE_DIR "/docs/file-formats.md");
  const std::string opening = "\n```text ";
  for (std::size_t at = 0; (at = page.find(opening, at)) != std::string::npos;) {
    at += opening.size();
    const std::size_t begin = page.find('\n', at) + 1;
    const fs::path name = page.substr(at, begin - 1 - at);
    at = page.find("\n```\n", begin);
    const std::string text = page.substr(begin, at + 1 - begin);
    if (name.parent_path() == "tiny") dir.write(name.filename().string(), text);
    if (name.parent_path() == "results") results[name.filename().string()] = text;
  }
  const test::BundleRun run = test::run_bundle(dir.path("tiny.ctl"), 1);
  ASSERT_EQ(run.result, 1) << run.output;
  EXPECT_NE(dir.read("tiny.out").find("Sigma 0 a posteriori    :  4.26 um"), std::string::npos);
  EXPECT_EQ(results.size(), 7U);
  for (auto& [name, expected] : results) {
    std::string actual = dir.read(name);
    if (expected.ends_with("...\n")) {
      expected.resize(expected.size() - 4);
      std::size_t end = 0;
      for (const char c : expected) end = c == '\n' ? actual.find('\n', end) + 1 : end;
      actual.resize(end);
    }
    EXPECT_EQ(test::first_difference(actual, expected), "") << name;
  }
}

// Noisy synthetic blocks: the adjustment finds what was put in, with the precision it states.

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
  SCOPED_TRACE(spec.orientations[0] + (spec.triples > 0 ? ", corrections" : ""));
  const test::TempDir dir;
  const test::SyntheticProject synthetic = make_synthetic_project(spec);
  synthetic.write(dir);
  ls_params() = LSParams();
  RunSummary summary;
  const std::string output = test::captured_output([&] {
    summary =
        run_project({.path = dir.path("project.ctl"), .inspect = [&](const BundleProject& project) {
                       expect_true_parameters(project, synthetic);
                     }});
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
