#include "settings.h"

#include <cmath>
#include <limits>

#include "lsq/linalg/kernels.h"
#include "lsq/named_losses.h"

namespace vorn::session {
namespace {

// A setting that is on or off, by its name: one of the session, or of the adjustment.
struct Switch {
  std::string_view name;
  bool Settings::*own;
  bool AdjustmentSettings::*of_adjustment = nullptr;
};

constexpr Switch kSwitches[] = {
    {"rigorous", nullptr, &AdjustmentSettings::rigorous},
    {"damped", nullptr, &AdjustmentSettings::damped},
    {"keep_robust", nullptr, &AdjustmentSettings::keep_robust},
    {"quality", &Settings::quality},
    {"prior", &Settings::prior},
    {"inner_datum", &Settings::inner_datum},
    {"lenient", &Settings::lenient},
    {"files", &Settings::files},
    {"cameras", &Settings::cameras},
    {"allow_outside", &Settings::allow_outside},
};

// In settings that may be const; null when no switch has the name.
template <class AnySettings>
auto find_switch(AnySettings& settings, std::string_view name) -> decltype(&settings.quality) {
  for (const Switch& entry : kSwitches) {
    if (entry.name != name) continue;
    return entry.own != nullptr ? &(settings.*entry.own)
                                : &(settings.adjustment.*entry.of_adjustment);
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
  const auto loss = value == "none" ? RobustLoss::none : loss_named(value);
  if (!loss) return SettingResult::bad_value;
  settings.adjustment.robust_loss = *loss;
  return SettingResult::done;
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
    const bool* const found = find_switch(settings, name);
    if (found == nullptr) return false;
    value = *found ? 1.0 : 0.0;
  }
  return true;
}

}  // namespace vorn::session
