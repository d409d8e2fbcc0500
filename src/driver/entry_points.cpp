#include <string>

#include "driver/run.h"
#include "text/text_writer.h"
#include "vorn/vorn.h"

extern "C" {

int32_t VornScanBundle(const char* path, int32_t flag) {
  if (path == nullptr) return 0;
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
