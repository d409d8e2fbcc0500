#pragma once

#include <CLI/CLI.hpp>

#include "lsq/adjustment_settings.h"

namespace vorn::app {

// Declares the options that choose how the adjustment is computed: --rigorous, --damped,
// --robust, --solve.
void define_estimation_options(CLI::App& parser, AdjustmentSettings& settings);

}  // namespace vorn::app
