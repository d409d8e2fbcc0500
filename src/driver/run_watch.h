#pragma once

#include <cstdint>

#include "driver/run.h"
#include "driver/run_observer.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// Stands between a run and its observer and keeps what was answered. Without an observer nothing is
// asked and nothing is counted.
class RunWatch {
 public:
  // `observer` may be null. `finite_only`: an iteration whose numbers are not finite fails.
  RunWatch(RunObserver* observer, const RunLimits& limits, bool finite_only)
      : observer_(observer), limits_(limits), finite_only_(finite_only) {}
  RunWatch(const RunWatch&) = delete;
  RunWatch& operator=(const RunWatch&) = delete;

  // Listens to the reading and the iterations of a project; both outlive it.
  void attach(BundleProject& project, const TextWriter& report);
  // Tells that a stage begins, and how much of it is done. False when the run is to stop.
  [[nodiscard]] bool enter(RunStage stage);
  [[nodiscard]] bool progress(double fraction);
  [[nodiscard]] bool is_watched() const { return observer_ != nullptr; }
  // Whether the observer has stopped the run.
  [[nodiscard]] bool stopped() const { return answer_ == ObserverAnswer::stop; }

 private:
  // Keeps the stronger one of an answer and those before.
  void keep(ObserverAnswer answer);
  ObserverAnswer judge(const IterationStatistics& statistics, const TextWriter& report);
  [[nodiscard]] bool is_beyond_limits(std::int32_t iteration, std::uint64_t report_bytes) const;

  RunObserver* observer_;
  RunLimits limits_;
  bool finite_only_;
  RunStage stage_ = RunStage::reading;
  double told_ = 0.0;
  ObserverAnswer answer_ = ObserverAnswer::go_on;
};

}  // namespace vorn
