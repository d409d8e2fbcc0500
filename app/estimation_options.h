#pragma once

#include <CLI/CLI.hpp>

#include "lsq/adjustment_settings.h"

namespace vorn::app {

// Accepts numbers greater than 0 that are finite.
[[nodiscard]] CLI::Validator finite_positive();

// Declares the options that choose how the adjustment is computed: --rigorous, --damped,
// --robust, --solve.
void define_estimation_options(CLI::App& parser, AdjustmentSettings& settings);

}  // namespace vorn::app
