#include "app/estimation_options.h"

namespace vorn::app {

void define_estimation_options(CLI::App& parser, AdjustmentSettings& settings) {
  parser.add_flag("--rigorous", settings.rigorous,
                  "derivatives of the observation equation itself: with free additional parameters "
                  "the solution is the least-squares minimum");
}

}  // namespace vorn::app
