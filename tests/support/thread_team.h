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
    std::vector<std::thread> threads;
    for (std::size_t worker = 0; worker < std::min(count_, num_parts); ++worker) {
      threads.emplace_back([&, worker] {
        for (std::size_t k = next++; k < num_parts; k = next++) part(k, worker);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

 private:
  std::size_t count_;
};

}  // namespace vorn::test
