// Damaged files of a complete project: a run ends, with a reason when it fails.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

namespace vorn {
namespace {

using test::BundleRun;
using test::TempDir;

test::SyntheticProject everything() {
  return test::make_synthetic_project(
      {.cameras = {"camera-pushbroom", "camera-ccd", "camera-frame"},
       .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion", "ext-ori-pok-rot"},
       .ap_sets = {"gap", "p12"},
       .images = 3,
       .points = 5,
       .control = 3,
       .check = 1,
       .position_triples = 1});
}

// Begin and end of every token.
std::vector<std::pair<std::size_t, std::size_t>> tokens_of(const std::string& text) {
  std::vector<std::pair<std::size_t, std::size_t>> tokens;
  for (std::size_t end = 0;;) {
    const std::size_t begin = text.find_first_not_of(" \n", end);
    if (begin == std::string::npos) return tokens;
    end = std::min(text.find_first_of(" \n", begin), text.size());
    tokens.emplace_back(begin, end);
  }
}

void expect_end_with_reason(const TempDir& dir, const std::string& file, const std::string& text) {
  const test::LSParamsGuard guard;
  dir.write(file, text);
  const BundleRun run = test::run_bundle(dir.path("project.ctl"));
  EXPECT_TRUE(run.result == 0 || run.result == 1);
  if (run.result == 0) {
    EXPECT_NE((run.output + dir.read("project.out")).find("ERROR"), std::string::npos)
        << file << " fails in silence, ending in " << text.substr(text.size() - text.size() % 40);
  }
}

TEST(HostileInput, TruncationAfterEachToken) {
  const TempDir dir;
  const test::SyntheticProject project = everything();
  project.write(dir);
  for (const auto& [file, text] : project.files) {
    for (const auto& [begin, end] : tokens_of(text)) {
      expect_end_with_reason(dir, file, text.substr(0, end));
    }
    dir.write(file, text);
  }
  const test::LSParamsGuard guard;
  EXPECT_EQ(test::run_bundle(dir.path("project.ctl")).result, 1) << "the undamaged project runs";
}

TEST(HostileInput, ReplacedTokens) {
  const TempDir dir;
  const test::SyntheticProject project = everything();
  project.write(dir);
  const std::string replacements[] = {"-1",   "2147483647", "1e999", "nan",
                                      "(",    "stop-dep",   "0",     std::string(100'000, '7'),
                                      "\xFF", "(1,2,3)",    "1e300"};
  std::size_t turn = 0;
  for (const auto& [file, text] : project.files) {
    for (const auto& [begin, end] : tokens_of(text)) {
      // A large number of iterations is not an error.
      const bool iterations = file == "lspar.txt" && begin > 1 && begin < 10;
      const std::string& replacement = replacements[turn++ % std::size(replacements)];
      if (iterations && replacement == "2147483647") continue;
      expect_end_with_reason(dir, file, text.substr(0, begin) + replacement + text.substr(end));
    }
    dir.write(file, text);
  }
}

}  // namespace
}  // namespace vorn
