#include <atomic>
#include <cstdio>
#include <string>

#include "base/floating_point_state.h"
#include "driver/run.h"
#include "text/text_writer.h"
#include "vorn/vorn.h"

namespace vorn {
namespace {

// Set while a run is under way: the current directory, the least-squares parameters and the console
// belong to the process, so a second run would mix its files with those of the first.
std::atomic_flag run_under_way;

// The one run of this process, if it could be had.
class RunPermit {
 public:
  RunPermit() : granted_(!run_under_way.test_and_set(std::memory_order_acquire)) {}
  ~RunPermit() {
    if (granted_) run_under_way.clear(std::memory_order_release);
  }
  RunPermit(const RunPermit&) = delete;
  RunPermit& operator=(const RunPermit&) = delete;
  [[nodiscard]] bool granted() const { return granted_; }

 private:
  bool granted_;
};

}  // namespace
}  // namespace vorn

extern "C" {

int32_t VornScanBundle(const char* path, int32_t flag) {
  if (path == nullptr) return 0;
  const vorn::RunPermit permit;
  if (!permit.granted()) {
    // Straight to the stream: the console's buffers are the running call's.
    std::fputs("ERROR: Another run is under way in this process; this call does nothing.\n",
               stderr);
    return 0;
  }
  const vorn::FloatingPointState arithmetic;
  int32_t result = 0;
  try {
    result = vorn::run_project({.path = path, .with_cameras = flag != 0}).result;
  } catch (...) {
    // Memory ran out. The host must not see an exception.
    vorn::print_out_of_memory();
  }
  vorn::flush_console();
  return result;
}

int32_t VornBundle(const char* path, int32_t flag) { return VornScanBundle(path, flag); }

}  // extern "C"
