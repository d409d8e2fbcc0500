// Whole runs of the projects in tests/data, compared with reviewed outputs. The expected files hold
// "T" in place of cpu times.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/temp_dir.h"
#include "support/text_compare.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;

TEST(TextCompare, ForgivesLastDigitsOnly) {
  const std::pair<const char*, const char*> same[] = {
      {"a 1.234  -0.000 x", "a 1.236   0.000 x"}, {" 9.999", "10.001"}, {"9.99e-01", "1.00e+00"}};
  const std::pair<const char*, const char*> other[] = {
      {"1.234", "1.238"},   {"1.234e-06", "1.234e-05"}, {" 1.50", "1.500"},
      {"p1 1.5", "p2 1.5"}, {"points: 7", "points: 8"}, {"5 ", "5"},
      {"a", "a\n\n"}};
  for (const auto& [a, b] : same) EXPECT_EQ(test::first_difference(a, b), "") << a;
  for (const auto& [a, b] : other) EXPECT_NE(test::first_difference(a, b), "") << a;
}

class WholeProject : public testing::TestWithParam<const char*> {};

TEST_P(WholeProject, WritesWhatIsExpected) {
  const fs::path data = fs::path(VORN_SOURCE_DIR) / "tests" / "data" / GetParam();
  const test::TempDir dir;
  const test::LSParamsGuard guard;
  for (const auto& entry : fs::directory_iterator(data)) {
    if (entry.path().extension() != ".expected") fs::copy(entry.path(), dir.path());
  }
  const test::BundleRun run = test::run_bundle(dir.path("project.ctl"), 1);
  EXPECT_EQ(run.result, 1);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(test::first_difference(run.output, test::file_text(data / "stdout.expected")), "");
  int compared = 0;
  for (const auto& entry : fs::directory_iterator(data)) {
    if (entry.path().extension() != ".expected" || entry.path().stem() == "stdout") continue;
    const std::string name = entry.path().stem().string();
    EXPECT_EQ(
        test::first_difference(test::without_times(dir.read(name)), test::file_text(entry.path())),
        "")
        << name;
    ++compared;
  }
  EXPECT_GE(compared, 8);
}

INSTANTIATE_TEST_SUITE_P(Data, WholeProject,
                         testing::Values("frame-selfcal", "mixed-models", "pushbroom-drift"));

}  // namespace
}  // namespace vorn
