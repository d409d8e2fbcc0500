#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "base/workers.h"

namespace vorn::test {

// Threads of the standard library, which the thread sanitizer sees through, at work for as long as
// the team lives.
class ThreadTeam final : public Workers {
 public:
  explicit ThreadTeam(std::size_t count) : count_(count) { use_workers(this); }
  ~ThreadTeam() override { use_workers(nullptr); }
  std::size_t count() const override { return count_; }
  void run(std::size_t num_parts, const Part& part) override {
    std::atomic<std::size_t> next = 0;
    const auto work = [&](std::size_t worker) {
      for (std::size_t k = next++; k < num_parts; k = next++) part(k, worker);
    };
    std::vector<std::thread> threads;
    // The caller is the last worker, and the only one where there is nothing to share.
    const std::size_t others = num_parts == 0 ? 0 : std::min(count_, num_parts) - 1;
    for (std::size_t worker = 0; worker < others; ++worker) threads.emplace_back(work, worker);
    work(others);
    for (std::thread& thread : threads) thread.join();
  }

 private:
  std::size_t count_;
};

}  // namespace vorn::test
