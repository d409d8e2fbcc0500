#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "lsq/ls_params.h"
#include "support/captured_output.h"
#include "support/synthetic_project.h"
#include "vorn/vorn.h"

namespace vorn::test {

// What a host sees of one run.
struct BundleRun {
  std::int32_t result;
  std::string output;
  std::string errors;
};

inline BundleRun run_bundle(const std::string& path, std::int32_t flag = 0) {
  BundleRun run{};
  run.errors = captured_errors([&] {
    run.output = captured_output([&] { run.result = VornScanBundle(path.c_str(), flag); });
  });
  return run;
}

// The text with all cpu times replaced.
inline std::string without_times(const std::string& text) {
  static const std::regex kTime("(cpu time[^:\n]*: |solution only: )[0-9.]+ s");
  return std::regex_replace(text, kTime, "$1T s");
}

// A simulated project in a directory of its own, by default with cameras, orientations and sets of
// several types and both corrections.
class ProjectTest : public testing::Test {
 protected:
  explicit ProjectTest(const SyntheticSpec& spec = small_project())
      : project_(make_synthetic_project(spec)) {
    project_.write(dir_);
  }
  static SyntheticSpec small_project() {
    return {.cameras = {"camera-pushbroom", "camera-ccd", "camera-frame"},
            .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion", "ext-ori-pok-rot"},
            .ap_sets = {"gap", "p12"},
            .images = 3,
            .points = 8,
            .triples = 1};
  }
  // Runs the project, files of all kinds included, as the first one of a process does.
  BundleRun run() const {
    ls_params() = LSParams();
    return run_bundle(control_file_, 1);
  }
  // Nothing fails in silence.
  void expect_reason(const BundleRun& run) const {
    if (run.result == 1) return;
    EXPECT_NE((run.output + dir_.read("project.out")).find("ERROR"), std::string::npos);
  }
  void expect_inputs_unchanged() const {
    for (const auto& [name, text] : project_.files) EXPECT_EQ(dir_.read(name), text) << name;
  }

  TempDir dir_;
  SyntheticProject project_;
  const std::string control_file_ = dir_.path("project.ctl");
};

}  // namespace vorn::test
