#include "quality/diagnosis.h"

namespace vorn {

std::string_view motion_kind_name(MotionKind kind) {
  constexpr std::array<std::string_view, 4> kNames = {"translation", "rotation", "scale",
                                                      "similarity"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string_view severity_name(FindingSeverity severity) {
  constexpr std::array<std::string_view, 3> kNames = {"error", "warning", "info"};
  return kNames[static_cast<std::size_t>(severity)];
}

}  // namespace vorn
