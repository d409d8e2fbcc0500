// Kernels for every processor that the platform knows: two doubles per vector.

#define VORN_LANES 2
#define VORN_COLUMNS 4
#define VORN_KERNEL_NAME "baseline"
#include "lsq/linalg/kernels_impl.h"

namespace vorn {

const Kernels* baseline_kernels() { return &kTable; }

const Kernels& kernels() {
  static const Kernels& chosen = [&]() -> const Kernels& {
    if (const Kernels* widest = avx512_kernels()) return *widest;
    if (const Kernels* wide = avx2_kernels()) return *wide;
    return *baseline_kernels();
  }();
  return chosen;
}

}  // namespace vorn
