#include "driver/run_watch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "driver/bundle_project.h"

namespace vorn {

std::string_view name_of(RunStage stage) {
  constexpr std::array<std::string_view, 4> kNames = {"reading", "initialisation", "iterations",
                                                      "writing"};
  return kNames[static_cast<std::size_t>(stage)];
}

void RunWatch::keep(ObserverAnswer answer) { answer_ = std::max(answer_, answer); }

void RunWatch::attach(BundleProject& project, const TextWriter& report) {
  if (observer_ != nullptr) {
    project.on_reading = [this](double fraction) { return progress(fraction); };
  }
  const bool limited = limits_.iterations > 0 || limits_.report_bytes > 0;
  if (observer_ == nullptr && !limited && !finite_only_) return;
  project.on_iteration = [this, &report](const IterationStatistics& statistics) {
    return judge(statistics, report);
  };
}

bool RunWatch::enter(RunStage stage) {
  stage_ = stage;
  told_ = 0.0;
  if (observer_ != nullptr) keep(observer_->on_stage(stage));
  return !stopped();
}

bool RunWatch::progress(double fraction) {
  if (observer_ == nullptr) return true;
  told_ = std::clamp(fraction, told_, 1.0);
  keep(observer_->on_progress(stage_, told_));
  return !stopped();
}

bool RunWatch::is_beyond_limits(std::int32_t iteration, std::uint64_t report_bytes) const {
  return (limits_.iterations > 0 && iteration >= limits_.iterations) ||
         (limits_.report_bytes > 0 && report_bytes > limits_.report_bytes);
}

ObserverAnswer RunWatch::judge(const IterationStatistics& statistics, const TextWriter& report) {
  if (observer_ != nullptr) keep(observer_->on_iteration(statistics));
  if (finite_only_ && !std::isfinite(statistics.vtpv)) return ObserverAnswer::stop;
  const bool ends = is_beyond_limits(statistics.number, report.size());
  return ends ? std::max(answer_, ObserverAnswer::finish) : answer_;
}

}  // namespace vorn
