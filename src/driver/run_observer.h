#pragma once

#include <cstdint>
#include <string_view>

#include "lsq/stages/iteration_observer.h"

namespace vorn {

// The parts of a run, in their order.
enum class RunStage : std::uint8_t { reading, initialisation, iterations, writing };
// "reading", "initialisation", "iterations", "writing".
[[nodiscard]] std::string_view name_of(RunStage stage);

// Is told how a run goes on, in the thread of the run, and answers what is to happen.
//
//   go_on   nothing changes
//   finish  with the results that there are: the running iteration is the last one; before the
//           iterations, the first one will be. While results are written it changes nothing.
//   stop    the run fails: after the running iteration, after the data file that is being read,
//           or after the section of the report that is being written
//
// An answer to finish or to stop holds until the end, whatever is answered later. Observers throw
// nothing.
class RunObserver {
 public:
  RunObserver() = default;
  RunObserver(const RunObserver&) = delete;
  RunObserver& operator=(const RunObserver&) = delete;
  virtual ~RunObserver() = default;

  // A stage begins.
  virtual ObserverAnswer on_stage(RunStage /*stage*/) { return ObserverAnswer::go_on; }
  // The part of the running stage that is done, from 0 to 1 and never less than before; told of
  // reading and writing, some hundred times at most.
  virtual ObserverAnswer on_progress(RunStage /*stage*/, double /*fraction*/) {
    return ObserverAnswer::go_on;
  }
  // An iteration has ended; its corrections have been applied.
  virtual ObserverAnswer on_iteration(const IterationStatistics& /*statistics*/) {
    return ObserverAnswer::go_on;
  }
};

}  // namespace vorn
