#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lsq/adjustment_settings.h"

namespace vorn::session {

// What a session's runs are to do; docs/session.md has the table of names.
struct Settings {
  AdjustmentSettings adjustment;
  std::int32_t max_iterations = -1;  // -1: what the project says
  bool quality = true;
  bool prior = false;
  bool inner_datum = false;
  bool lenient = false;
  bool files = true;
  bool cameras = false;
  bool allow_outside = false;
  std::string kernel;  // empty: the processor's choice
};

enum class SettingResult : std::uint8_t { done, unknown_name, bad_value };

[[nodiscard]] SettingResult set_number(Settings& settings, std::string_view name, double value);
[[nodiscard]] SettingResult set_text(Settings& settings, std::string_view name,
                                     std::string_view value);
// False when no number setting has the name.
[[nodiscard]] bool get_number(const Settings& settings, std::string_view name, double& value);

}  // namespace vorn::session
