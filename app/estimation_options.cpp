#include "app/estimation_options.h"

#include <cmath>
#include <map>
#include <string>

#include "lsq/named_losses.h"

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
  std::map<std::string, RobustLoss> losses;
  for (const NamedLoss& named : kNamedLosses) losses.emplace(named.name, named.loss);
  CLI::Option* const robust =
      parser
          .add_option_function<RobustLoss>(
              "--robust", [&settings](const RobustLoss& loss) { set_robust(settings, loss); },
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
