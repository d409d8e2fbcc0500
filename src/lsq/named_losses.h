#pragma once

#include <optional>
#include <string_view>

#include "lsq/adjustment_settings.h"

namespace vorn {

// A loss by the word that asks for it.
struct NamedLoss {
  std::string_view name;
  RobustLoss loss;
};
inline constexpr NamedLoss kNamedLosses[] = {{"huber", RobustLoss::huber},
                                             {"cauchy", RobustLoss::cauchy},
                                             {"geman-mcclure", RobustLoss::geman_mcclure}};

[[nodiscard]] std::optional<RobustLoss> loss_named(std::string_view name);

// Chooses a loss. All but `none` need damped steps.
void set_robust(AdjustmentSettings& settings, RobustLoss loss);

}  // namespace vorn
