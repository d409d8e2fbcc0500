#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

namespace vorn {

// Hands over parts of a work in their order, one at a time, in whatever order workers finish them.
// Nobody waits: who finishes the next one hands over all that are finished, while others work on.
class InTurn {
 public:
  explicit InTurn(std::size_t num_parts) : finished_(num_parts) {}

  // Part k is finished. Calls take(part), on this thread, for each part whose turn that makes it.
  template <class Take>
  void finish(std::size_t k, const Take& take) {
    finished_[k] = true;
    // Who finds another one at it leaves the part to that one, which looks again afterwards.
    while (next_is_finished() && !taking_.test_and_set()) {
      while (next_is_finished()) take(next_++);
      taking_.clear();
    }
  }

 private:
  bool next_is_finished() const {
    const std::size_t next = next_;
    return next < finished_.size() && finished_[next];
  }

  std::vector<std::atomic<bool>> finished_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic_flag taking_;
};

}  // namespace vorn
