#pragma once

#include <cstdint>

#include "driver/run_observer.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// Stands between a run and its observer and keeps what was answered. Without an observer nothing is
// asked and nothing is counted.
class RunWatch {
 public:
  // `observer` may be null. An iteration that ends with a report longer than `max_report_bytes`
  // (0: no limit) is the last one; `finite_only`: one whose numbers are not finite fails.
  RunWatch(RunObserver* observer, std::uint64_t max_report_bytes, bool finite_only)
      : observer_(observer), max_report_bytes_(max_report_bytes), finite_only_(finite_only) {}
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

  RunObserver* observer_;
  std::uint64_t max_report_bytes_;
  bool finite_only_;
  RunStage stage_ = RunStage::reading;
  double told_ = 0.0;
  ObserverAnswer answer_ = ObserverAnswer::go_on;
};

}  // namespace vorn
