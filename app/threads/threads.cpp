#include "app/threads/threads.h"

#include "base/workers.h"

#ifdef VORN_HAS_OPENMP

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

namespace vorn::app {
namespace {

// The threads of OpenMP's pool, each of which takes the next part when it has finished one.
class OpenMpWorkers final : public Workers {
 public:
  explicit OpenMpWorkers(std::size_t count) : count_(count) {}
  std::size_t count() const override { return count_; }

  void run(std::size_t num_parts, const Part& part) override {
    if (std::min(count_, num_parts) <= 1) {
      for (std::size_t k = 0; k < num_parts; ++k) part(k, 0);
      return;
    }
    // All threads also for few parts: the pool of a smaller team ends those it does not need. An
    // exception must not leave a thread of the pool: the first one leaves here.
    std::exception_ptr thrown;
    std::atomic<bool> failed = false;
#pragma omp parallel for schedule(dynamic, 1) num_threads(static_cast <int>(count_))
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

// `count` threads, the caller among them, when the system starts them all at the same time; else
// half of those that it starts, so that their stacks leave memory to the project. OpenMP's runtime
// ends the whole program when it cannot start one.
std::size_t startable_threads(std::size_t count) {
  std::promise<void> all_started;
  const std::shared_future<void> end(all_started.get_future());
  std::vector<std::thread> threads;
  threads.reserve(count);
  try {
    while (threads.size() + 1 < count) threads.emplace_back([end] { end.wait(); });
  } catch (const std::system_error&) {
    // Those that could be started will do.
  }
  all_started.set_value();
  for (std::thread& thread : threads) thread.join();
  const std::size_t started = threads.size() + 1;
  return started == count ? count : (started + 1) / 2;
}

// At work from the first call of use_threads on.
std::unique_ptr<OpenMpWorkers>& team() {
  static std::unique_ptr<OpenMpWorkers> the_team;
  return the_team;
}

}  // namespace

bool has_threads() { return true; }

std::size_t available_cores() { return static_cast<std::size_t>(std::max(1, omp_get_num_procs())); }

void use_threads(std::size_t count) {
  use_workers(nullptr);
  team() = std::make_unique<OpenMpWorkers>(startable_threads(count));
  if (team()->count() <= 1) return;
  // The pool starts now, before a project takes the memory that its threads need.
  team()->run(team()->count(), [](std::size_t, std::size_t) {});
  use_workers(team().get());
}

void use_all_cores_by_default() {
  if (team() == nullptr) use_threads(available_cores());
}

}  // namespace vorn::app

#else

namespace vorn::app {

bool has_threads() { return false; }
std::size_t available_cores() { return 1; }
void use_threads(std::size_t) { use_workers(nullptr); }
void use_all_cores_by_default() {}

}  // namespace vorn::app

#endif
