#include "app/threads/threads.h"

#include "base/workers.h"

#ifdef VORN_HAS_OPENMP

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>

namespace vorn::app {
namespace {

// The threads of OpenMP's pool, each of which takes the next part when it has finished one.
class OpenMpWorkers final : public Workers {
 public:
  explicit OpenMpWorkers(std::size_t count) : count_(count) {}
  std::size_t count() const override { return count_; }

  void run(std::size_t num_parts, const Part& part) override {
    const std::size_t team = std::min(count_, num_parts);
    if (team <= 1) {
      for (std::size_t k = 0; k < num_parts; ++k) part(k, 0);
      return;
    }
    // An exception must not leave a thread of the pool: the first one leaves here.
    std::exception_ptr thrown;
    std::atomic<bool> failed = false;
#pragma omp parallel for schedule(dynamic, 1) num_threads(static_cast <int>(team))
    for (std::size_t k = 0; k < num_parts; ++k) {
      if (failed.load(std::memory_order_relaxed)) continue;
      try {
        part(k, static_cast<std::size_t>(omp_get_thread_num()));
      } catch (...) {
        if (!failed.exchange(true)) thrown = std::current_exception();
      }
    }
    if (thrown) std::rethrow_exception(thrown);
  }

 private:
  std::size_t count_;
};

}  // namespace

bool has_threads() { return true; }

std::size_t available_cores() { return static_cast<std::size_t>(std::max(1, omp_get_num_procs())); }

void use_threads(std::size_t count) {
  static std::unique_ptr<OpenMpWorkers> team;
  use_workers(nullptr);
  team = std::make_unique<OpenMpWorkers>(count);
  if (count > 1) use_workers(team.get());
}

}  // namespace vorn::app

#else

namespace vorn::app {

bool has_threads() { return false; }
std::size_t available_cores() { return 1; }
void use_threads(std::size_t) { use_workers(nullptr); }

}  // namespace vorn::app

#endif
