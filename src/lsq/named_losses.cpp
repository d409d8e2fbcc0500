#include "lsq/named_losses.h"

namespace vorn {

std::optional<RobustLoss> loss_named(std::string_view name) {
  for (const NamedLoss& named : kNamedLosses) {
    if (named.name == name) return named.loss;
  }
  return std::nullopt;
}

void set_robust(AdjustmentSettings& settings, RobustLoss loss) {
  settings.robust_loss = loss;
  if (loss != RobustLoss::none) settings.damped = true;
}

}  // namespace vorn
