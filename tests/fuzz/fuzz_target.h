#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

namespace vorn::fuzz {

// One entry point for inputs that mean harm. `run` ends normally for every text whatsoever; a fault
// shows as a sanitizer's report or an abort. False when the input was not tried because it asks for
// more work than a round may take.
struct FuzzTarget {
  std::string_view name;
  std::function<bool(std::string_view text)> run;
};

const std::vector<FuzzTarget>& all_targets();
// Those of the readers of other programs' formats, which are part of all.
const std::vector<FuzzTarget>& exchange_targets();

// A property that holds for every input.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "violated: %s\n", property);
  std::abort();
}

}  // namespace vorn::fuzz
