// Memory that runs out at the n-th allocation of a run, for n over the whole run. A program of its
// own, because it replaces the operators new and delete of the process.

#include <atomic>
#include <chrono>
#include <filesystem>
#include <new>

#include "support/project_test.h"
#include "vorn/session.h"

namespace {

// Allocations since it was armed; those from `first` to `last` find no memory.
struct AllocationFault {
  std::int64_t count = 0;
  std::int64_t first = 0;
  std::int64_t last = -1;
};

AllocationFault fault;
bool armed = false;
std::atomic<std::int64_t> live_blocks = 0;

void* allocate(std::size_t size, std::size_t alignment) noexcept {
  if (armed && ++fault.count >= fault.first && fault.count <= fault.last) return nullptr;
  const std::size_t room = (size / alignment + 1) * alignment;
  void* const memory = std::aligned_alloc(alignment, room);
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

constexpr std::size_t kPlain = alignof(std::max_align_t);

}  // namespace

// All other forms of the standard library come down to these. A sanitizer has other forms of its
// own, whose blocks it frees itself.
void* operator new(std::size_t size) { return allocate_or_throw(size, kPlain); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, kPlain);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }

namespace vorn {
namespace {

namespace fs = std::filesystem;

class AllocationFaults : public test::ProjectTest {
 protected:
  AllocationFaults() {
    // Every message of the options.
    project_.files["params.txt"] = "0 1 1 1 1 1 1 1 1 1 1 1 3 3 s.pbm m.txt r.txt x.txt\n";
    project_.write(dir_);
  }

  // The state of the process is compared before a capture takes files and memory of its own.
  std::int32_t run(AllocationFault plan = {}) {
    ls_params() = LSParams();
    flush_console();
    const std::int64_t blocks = live_blocks;
    fault = plan;
    armed = true;
    const std::int32_t result = VornBundle(control_file_.c_str(), 1);
    armed = false;
    leaks_ += live_blocks != blocks ? 1 : 0;
    return result;
  }
  std::string results() const { return test::without_times(dir_.read("project.out")); }
  static std::ptrdiff_t open_files() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  }

  int leaks_ = 0;
};

TEST_F(AllocationFaults, OneOrAllFromThereOn) {
  // What the process keeps for good: the buffers of its streams.
  test::captured_errors([] { error_output() << '\n'; });
  test::captured_output([&] { ASSERT_EQ(run(), 1); });
  const std::string expected = results();
  const std::int64_t total = fault.count;
  ASSERT_GT(total, 200);
  const std::ptrdiff_t files = open_files();
  leaks_ = 0;
  for (const bool one : {true, false}) {
    const auto begin = std::chrono::steady_clock::now();
    int wrong = 0;
    std::ptrdiff_t unexplained = 0;
    std::int64_t step = 1;
    const std::string output = test::captured_output([&] {
      for (std::int64_t n = 1; n <= total; n += step) {
        const bool completed = run({0, n, one ? n : INT64_MAX}) == 1;
        const std::string report = results();
        // A sort does without its scratch memory; nothing else does.
        wrong += completed && report != expected ? 1 : 0;
        // The refusal of the normal equations stands in the report.
        unexplained += completed || report.find("do not fit") != std::string::npos ? 0 : 1;
        // Slow machines and sanitizers take larger steps once half a minute has passed.
        const auto passed = std::chrono::steady_clock::now() - begin;
        if (passed > std::chrono::seconds(30)) step = 1 + total / 50;
      }
    });
    const std::regex message("ERROR: There is not enough memory for this project.\n");
    unexplained -= std::distance(std::sregex_iterator(output.begin(), output.end(), message), {});
    EXPECT_EQ(unexplained, 0) << "every other failed run has one message";
    EXPECT_EQ(wrong, 0) << "a run that completes has all of its results";
    EXPECT_EQ(leaks_, 0) << "all memory is given back";
    EXPECT_EQ(open_files(), files) << "all files are closed";
    // No trace is left: the next run is the first one again.
    test::captured_output([&] { EXPECT_EQ(run(), 1); });
    EXPECT_EQ(results(), expected);
  }
  RecordProperty("allocations", std::to_string(total));
  expect_inputs_unchanged();
}

// A session in C: no exception leaves a function, and a run that fails has no results.
TEST_F(AllocationFaults, InASession) {
  vorn_session* session = nullptr;
  ASSERT_EQ(vorn_session_open(control_file_.c_str(), &session), VORN_OK);
  ASSERT_EQ(vorn_session_set_number(session, "files", 0), VORN_OK);
  const auto with_fault = [](const AllocationFault& plan, const auto& action) {
    fault = plan;
    armed = true;
    const std::int32_t status = action();
    armed = false;
    return status;
  };
  const std::string unknown(100, 'n');
  double value = 0.0;
  EXPECT_EQ(with_fault({0, 1, INT64_MAX},
                       [&] { return vorn_session_get_number(session, unknown.c_str(), &value); }),
            VORN_ERROR_MEMORY);
  const auto run = [session] { return vorn_session_run(session); };
  ASSERT_EQ(with_fault({}, run), VORN_OK) << vorn_session_error(session);
  const std::int64_t total = fault.count;
  constexpr std::int64_t kSteps = 100;
  int failed = 0;
  for (std::int64_t n = 1; n <= total; n += 1 + total / kSteps) {
    for (const bool one : {true, false}) {
      const std::int32_t status = with_fault({0, n, one ? n : INT64_MAX}, run);
      failed += status == VORN_ERROR_MEMORY ? 1 : 0;
      std::int32_t tables = 0;
      ASSERT_EQ(vorn_session_count_tables(session, &tables),
                status < 0 ? VORN_ERROR_ORDER : VORN_OK)
          << n << ": " << vorn_session_error(session);
    }
  }
  EXPECT_GT(failed, kSteps / 2);
  EXPECT_EQ(vorn_session_run(session), VORN_OK) << vorn_session_error(session);
  EXPECT_EQ(vorn_session_close(session), VORN_OK);
}

}  // namespace
}  // namespace vorn
