#include <cstdio>
#include <string>

#include "base/floating_point_state.h"
#include "driver/run.h"
#include "driver/run_permit.h"
#include "text/text_writer.h"
#include "vorn/vorn.h"

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
