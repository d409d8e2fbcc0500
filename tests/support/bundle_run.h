#pragma once

#include <regex>
#include <string>

#include "support/captured_output.h"
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

// `text` with the first occurrence of `from` replaced, which must exist.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

}  // namespace vorn::test
