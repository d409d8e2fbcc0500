#pragma once

namespace vorn {

// What the rows of the design matrix are.
enum class Derivatives {
  // The documented ones: columns of the additional parameters at the measured point, and no
  // dependence of the corrections on the image point in any other column.
  documented,
  // Those of the observation equation itself.
  exact,
};

// Losses that weight large residuals down.
enum class RobustLoss { none, huber, cauchy, geman_mcclure };

// How the adjustment is computed beyond what the project's files say. The defaults are what the
// library does.
struct AdjustmentSettings {
  bool rigorous = false;  // exact derivatives
  bool damped = false;    // Levenberg-Marquardt instead of Gauss-Newton steps
  RobustLoss robust_loss = RobustLoss::none;
  double robust_scale = 3.0;  // where the loss begins to bend, in units of the a-priori sigma
  bool keep_robust = false;   // finish with the weights of the robust start

  Derivatives derivatives() const {
    return rigorous ? Derivatives::exact : Derivatives::documented;
  }
};

}  // namespace vorn
