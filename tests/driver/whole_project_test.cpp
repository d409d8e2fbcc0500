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
  EXPECT_TRUE(test::same_line("a 1.234  -0.000 x", "a 1.236   0.000 x"));
  EXPECT_TRUE(test::same_line("1.2345e-06 9.99", "1.2347e-06 9.99"));
  EXPECT_TRUE(test::same_line(" 9.999", "10.001"));
  EXPECT_TRUE(test::same_line("9.99e-01", "1.00e+00"));
  EXPECT_FALSE(test::same_line("1.234", "1.238"));
  EXPECT_FALSE(test::same_line("1.234e-06", "1.234e-05"));
  EXPECT_FALSE(test::same_line("p1 1.5", "p2 1.5"));
  EXPECT_FALSE(test::same_line("points: 7", "points: 8"));
  EXPECT_FALSE(test::same_line("obs 5", "unk 5"));
  EXPECT_FALSE(test::same_line("5 ", "5"));
  EXPECT_EQ(test::first_difference("a\nb\n", "a\nb\n"), "");
  EXPECT_NE(test::first_difference("a\nb\n", "a\n"), "");
  EXPECT_NE(test::first_difference("a\n", "a\n\n"), "");
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
                         testing::Values("frame-selfcal", "mixed-models", "pushbroom-drift"),
                         [](const testing::TestParamInfo<const char*>& project) {
                           std::string name = project.param;
                           return name.erase(name.find('-'), 1);
                         });

}  // namespace
}  // namespace vorn
