#pragma once

#include <cmath>

#include "lsq/adjustment_settings.h"

namespace vorn {

// A loss rho(s) of the squared residual s of an image point in units of the a-priori variance, and
// the weight rho'(s) that minimises the same by reweighting. With k the scale:
//   huber          s <= k^2: s, else 2k sqrt(s) - k^2      1, else k/sqrt(s)       (Huber 1964)
//   cauchy         k^2 ln(1 + s/k^2)                       1/(1 + s/k^2)
//   geman-mcclure  s/(1 + s/k^2)                           1/(1 + s/k^2)^2         (Geman, McClure
//   1985)
class Loss {
 public:
  explicit Loss(RobustLoss kind = RobustLoss::none, double scale = 1.0)
      : kind_(kind), k_(scale), k2_(scale * scale) {}

  RobustLoss kind() const { return kind_; }
  double operator()(double s) const {
    switch (kind_) {
      case RobustLoss::huber:
        return s <= k2_ ? s : 2.0 * k_ * std::sqrt(s) - k2_;
      case RobustLoss::cauchy:
        return k2_ * std::log1p(s / k2_);
      case RobustLoss::geman_mcclure:
        return s / (1.0 + s / k2_);
      case RobustLoss::none:
        break;
    }
    return s;
  }
  double weight(double s) const {
    switch (kind_) {
      case RobustLoss::huber:
        return s <= k2_ ? 1.0 : k_ / std::sqrt(s);
      case RobustLoss::cauchy:
        return 1.0 / (1.0 + s / k2_);
      case RobustLoss::geman_mcclure:
        return 1.0 / ((1.0 + s / k2_) * (1.0 + s / k2_));
      case RobustLoss::none:
        break;
    }
    return 1.0;
  }

 private:
  RobustLoss kind_;
  double k_;
  double k2_;
};

}  // namespace vorn
