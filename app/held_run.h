#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "driver/bundle_project.h"
#include "quality/quality.h"

namespace vorn::app {

// An adjusted project and its figures of quality, in memory alone.
struct HeldRun {
  std::unique_ptr<BundleProject> project;
  QualityResults results;
};

// Adjusts a project without writing any file; `max_iterations` below 0 leaves their number to the
// project. `before_figures`, where given, may change the project between the adjustment and the
// computation of its figures. What the readers print goes to standard output. Null, with a sentence
// on the error stream, when there are no results or no figures.
[[nodiscard]] std::unique_ptr<HeldRun> run_in_memory(
    const std::string& path, const AdjustmentSettings& settings, std::int32_t max_iterations,
    const QualityRequest& quality,
    const std::function<void(BundleProject&)>& before_figures = nullptr);

}  // namespace vorn::app
