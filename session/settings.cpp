#include "settings.h"

#include <cmath>
#include <limits>
#include <utility>

#include "lsq/linalg/kernels.h"

namespace vorn::session {
namespace {

// A setting that is on or off, by its name.
struct Switch {
  std::string_view name;
  bool& (*of)(Settings& settings);
};

constexpr Switch kSwitches[] = {
    {"rigorous", [](Settings& s) -> bool& { return s.adjustment.rigorous; }},
    {"damped", [](Settings& s) -> bool& { return s.adjustment.damped; }},
    {"keep_robust", [](Settings& s) -> bool& { return s.adjustment.keep_robust; }},
    {"quality", [](Settings& s) -> bool& { return s.quality; }},
    {"prior", [](Settings& s) -> bool& { return s.prior; }},
    {"inner_datum", [](Settings& s) -> bool& { return s.inner_datum; }},
    {"lenient", [](Settings& s) -> bool& { return s.lenient; }},
    {"files", [](Settings& s) -> bool& { return s.files; }},
    {"cameras", [](Settings& s) -> bool& { return s.cameras; }},
    {"allow_outside", [](Settings& s) -> bool& { return s.allow_outside; }},
};

bool* find_switch(Settings& settings, std::string_view name) {
  for (const Switch& entry : kSwitches) {
    if (entry.name == name) return &entry.of(settings);
  }
  return nullptr;
}

SettingResult set_max_iterations(Settings& settings, double value) {
  // Negated, so that a value that is not a number fails.
  if (!(value >= -1.0 && value <= std::numeric_limits<std::int32_t>::max()) ||
      value != std::floor(value)) {
    return SettingResult::bad_value;
  }
  settings.max_iterations = static_cast<std::int32_t>(value);
  return SettingResult::done;
}

SettingResult set_robust(Settings& settings, std::string_view value) {
  constexpr std::pair<std::string_view, RobustLoss> kLosses[] = {
      {"none", RobustLoss::none},
      {"huber", RobustLoss::huber},
      {"cauchy", RobustLoss::cauchy},
      {"geman-mcclure", RobustLoss::geman_mcclure}};
  for (const auto& [name, loss] : kLosses) {
    if (name != value) continue;
    settings.adjustment.robust_loss = loss;
    return SettingResult::done;
  }
  return SettingResult::bad_value;
}

SettingResult set_kernel(Settings& settings, std::string_view value) {
  bool known = value.empty();
  for (const Kernels* kernel : {baseline_kernels(), avx2_kernels(), avx512_kernels()}) {
    known = known || (kernel != nullptr && value == kernel->name);
  }
  if (!known) return SettingResult::bad_value;
  settings.kernel = value;
  return SettingResult::done;
}

}  // namespace

SettingResult set_number(Settings& settings, std::string_view name, double value) {
  if (name == "max_iterations") return set_max_iterations(settings, value);
  if (name == "robust_scale") {
    if (!(value > 0.0) || !std::isfinite(value)) return SettingResult::bad_value;
    settings.adjustment.robust_scale = value;
    return SettingResult::done;
  }
  bool* const found = find_switch(settings, name);
  if (found == nullptr) return SettingResult::unknown_name;
  if (value != 0.0 && value != 1.0) return SettingResult::bad_value;
  *found = value == 1.0;
  return SettingResult::done;
}

SettingResult set_text(Settings& settings, std::string_view name, std::string_view value) {
  if (name == "robust") return set_robust(settings, value);
  if (name == "kernel") return set_kernel(settings, value);
  return SettingResult::unknown_name;
}

bool get_number(const Settings& settings, std::string_view name, double& value) {
  if (name == "max_iterations") {
    value = settings.max_iterations;
  } else if (name == "robust_scale") {
    value = settings.adjustment.robust_scale;
  } else {
    Settings copy = settings;
    const bool* const found = find_switch(copy, name);
    if (found == nullptr) return false;
    value = *found ? 1.0 : 0.0;
  }
  return true;
}

}  // namespace vorn::session
