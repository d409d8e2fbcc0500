// Memory that runs out at the n-th allocation of a run, for n over the whole run. A program of its
// own, because it replaces the operators new and delete of the process.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>
#include <string>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

namespace {

// Allocations of the guarded stretch so far; those from `fail_first` to `fail_last` find no memory.
struct AllocationFault {
  std::int64_t count = 0;
  std::int64_t fail_first = 0;
  std::int64_t fail_last = -1;
};

AllocationFault fault;
bool armed = false;
std::atomic<std::int64_t> live_blocks = 0;

void* allocate(std::size_t size, std::size_t alignment) noexcept {
  if (armed) {
    ++fault.count;
    if (fault.count >= fault.fail_first && fault.count <= fault.fail_last) return nullptr;
  }
  if (size == 0) size = 1;
  void* const memory =
      alignment <= alignof(std::max_align_t)
          ? std::malloc(size)
          : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (memory != nullptr) ++live_blocks;
  return memory;
}

void* allocate_or_throw(std::size_t size, std::size_t alignment) {
  void* const memory = allocate(size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  --live_blocks;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return allocate_or_throw(size, 1); }
void* operator new[](std::size_t size) { return allocate_or_throw(size, 1); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 1); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 1); }
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  release(memory);
}

namespace vorn {
namespace {

namespace fs = std::filesystem;

// Every kind of camera, of orientation, of set and both corrections; every message of the options.
test::SyntheticProject small_project() {
  test::SyntheticProject project = test::make_synthetic_project(
      {.cameras = {"camera-pushbroom", "camera-ccd", "camera-frame"},
       .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion", "ext-ori-pok-rot"},
       .ap_sets = {"gap", "p12"},
       .images = 3,
       .points = 8,
       .control = 5,
       .check = 1,
       .position_triples = 1});
  project.files["params.txt"] = "0 1 1 1 1 1 1 1 1 1 1 1 3 3 s.pbm m.txt r.txt x.txt\n";
  return project;
}

std::size_t open_files() {
  const fs::path descriptors = "/proc/self/fd";
  if (!fs::exists(descriptors)) return 0;
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(descriptors), fs::directory_iterator()));
}

class AllocationFaults : public testing::Test {
 protected:
  AllocationFaults() : project_(small_project()), control_file_(project_.write(dir_)) {
    // What the process keeps for good: the buffers of its streams.
    test::captured_errors([] { error_output() << '\n'; });
    test::captured_output([&] { undisturbed_ = run({}); });
    results_ = test::without_times(dir_.read("project.out"));
  }

  // The state of the process is compared before the capture takes files and memory of its own.
  std::int32_t run(AllocationFault plan) {
    const test::LSParamsGuard guard;
    flush_console();
    const std::int64_t blocks = live_blocks;
    fault = plan;
    armed = true;
    const std::int32_t result = VornBundle(control_file_.c_str(), 1);
    armed = false;
    leaked_ = live_blocks - blocks;
    return result;
  }

  // One run for each n, the failing stretch being [n, n + length).
  void fail_everywhere(std::int64_t length);

  test::TempDir dir_;
  test::SyntheticProject project_;
  std::string control_file_;
  std::string results_;
  std::int32_t undisturbed_ = 0;
  std::int64_t leaked_ = 0;
};

void AllocationFaults::fail_everywhere(std::int64_t length) {
  ASSERT_EQ(undisturbed_, 1);
  const std::int64_t total = fault.count;
  ASSERT_GT(total, 200);
  const std::size_t files = open_files();
  const auto begin = std::chrono::steady_clock::now();
  std::int64_t wrong = 0;
  std::int64_t leaks = 0;
  std::int64_t runs = 0;
  std::int64_t unexplained = 0;
  // Slow machines and sanitizers take larger steps once half a minute has passed.
  std::int64_t step = 1;
  const std::string output = test::captured_output([&] {
    for (std::int64_t n = 1; n <= total; n += step) {
      // A sort does without its scratch memory; nothing else does.
      const bool completed = run({0, n, length < 0 ? INT64_MAX : n + length - 1}) == 1;
      wrong += completed && test::without_times(dir_.read("project.out")) != results_ ? 1 : 0;
      leaks += leaked_ != 0 ? 1 : 0;
      ++runs;
      // The refusal of the normal equations stands in the report.
      const bool refused = dir_.read("project.out").find("do not fit") != std::string::npos;
      unexplained += completed || refused ? 0 : 1;
      const auto passed = std::chrono::steady_clock::now() - begin;
      if (passed > std::chrono::seconds(30)) step = 1 + total / 50;
    }
  });
  const std::string message = "ERROR: There is not enough memory for this project.\n";
  for (std::size_t at = 0; (at = output.find(message, at)) != std::string::npos; ++at)
    --unexplained;
  EXPECT_EQ(unexplained, 0) << "every other failed run has one message";
  EXPECT_EQ(wrong, 0) << "a run that completes has all of its results";
  EXPECT_EQ(leaks, 0) << "all memory is given back";
  EXPECT_EQ(open_files(), files) << "all files are closed";
  RecordProperty("allocations", std::to_string(total));
  RecordProperty("runs", std::to_string(runs));
  for (const auto& [name, text] : project_.files) EXPECT_EQ(dir_.read(name), text) << name;

  // No trace is left: the next run is the first one again.
  test::captured_output([&] { EXPECT_EQ(run({}), 1); });
  EXPECT_EQ(test::without_times(dir_.read("project.out")), results_);
}

TEST_F(AllocationFaults, OneAllocation) { fail_everywhere(1); }

TEST_F(AllocationFaults, AllAllocationsFromThereOn) { fail_everywhere(-1); }

}  // namespace
}  // namespace vorn
