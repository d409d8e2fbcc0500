#include "app/estimation_options.h"

#include <cmath>
#include <map>
#include <string>

namespace vorn::app {

CLI::Validator finite_positive() {
  return CLI::Validator(
      [](std::string& text) {
        double value = 0.0;
        const bool is_number = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
        if (is_number && value > 0.0) return std::string();
        return "expected a number greater than 0, found " + text;
      },
      "POSITIVE");
}

void define_estimation_options(CLI::App& parser, AdjustmentSettings& settings) {
  parser.add_flag("--rigorous", settings.rigorous,
                  "derivatives of the observation equation itself: with free additional parameters "
                  "the solution is the least-squares minimum");
  parser.add_flag("--damped", settings.damped,
                  "damped steps (Levenberg-Marquardt), taken only when the weighted sum of squares "
                  "falls: for poor approximate values");
  const std::map<std::string, RobustLoss> losses = {{"huber", RobustLoss::huber},
                                                    {"cauchy", RobustLoss::cauchy},
                                                    {"geman-mcclure", RobustLoss::geman_mcclure}};
  CLI::Option* const robust =
      parser
          .add_option_function<RobustLoss>(
              "--robust",
              [&settings](const RobustLoss& loss) {
                settings.robust_loss = loss;
                settings.damped = true;
              },
              "damped steps that begin with large residuals weighted down by a loss: huber, cauchy "
              "or geman-mcclure")
          ->option_text("LOSS")
          ->transform(CLI::CheckedTransformer(losses, CLI::ignore_case).description(""));
  parser
      .add_option("--robust-scale", settings.robust_scale,
                  "where the loss begins to bend, in units of the a-priori sigma [3]")
      ->check(finite_positive())
      ->needs(robust);
  parser
      .add_flag("--keep-robust", settings.keep_robust,
                "finish with the weights of the robust start")
      ->needs(robust);
  parser.add_flag_callback(
      "--solve",
      [&settings] {
        settings.rigorous = true;
        settings.damped = true;
      },
      "--rigorous --damped: for reconstructions from elsewhere with free calibration");
}

}  // namespace vorn::app
