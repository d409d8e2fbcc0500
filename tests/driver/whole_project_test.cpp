// Whole runs compared with reviewed outputs: the projects in tests/data, whose expected files hold
// "T" in place of cpu times, and the examples in docs/file-formats.md.

#include <algorithm>
#include <filesystem>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "support/project_test.h"
#include "support/text_compare.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;

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
    run_project(dir.path("project.ctl"), false, [&](const BundleProject& project) {
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
    });
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

}  // namespace
}  // namespace vorn
