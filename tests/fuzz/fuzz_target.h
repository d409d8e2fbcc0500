#pragma once

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

namespace vorn::fuzz {

// One entry point for inputs that mean harm. `run` ends normally for every text whatsoever; a fault
// shows as a sanitizer's report or an abort. False when the input was not tried because it asks for
// more work than a round may take.
struct FuzzTarget {
  std::string_view name;
  bool (*run)(std::string_view text);
};

std::span<const FuzzTarget> reader_targets();
std::span<const FuzzTarget> number_targets();
std::span<const FuzzTarget> project_targets();

// Null for an unknown name.
inline const FuzzTarget* find_target(std::string_view name) {
  for (const auto group : {reader_targets(), number_targets(), project_targets()}) {
    for (const FuzzTarget& target : group) {
      if (target.name == name) return &target;
    }
  }
  return nullptr;
}

// A property that holds for every input.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "violated: %s\n", property);
  std::abort();
}

}  // namespace vorn::fuzz
