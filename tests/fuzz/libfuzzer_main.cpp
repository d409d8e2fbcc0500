// Entry point of the libFuzzer programs, one for each target.

#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const vorn::fuzz::FuzzTarget* const target = vorn::fuzz::find_target(VORN_FUZZ_TARGET);
  vorn::fuzz::require(target != nullptr, "the target exists");
  // An input that was not tried does not enter the corpus.
  return target->run({reinterpret_cast<const char*>(data), size}) ? 0 : -1;
}
