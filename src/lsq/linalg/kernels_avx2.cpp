// Kernels for processors with AVX2 and fused multiply-add: four doubles per vector.

#include "lsq/linalg/kernels.h"

#ifdef __AVX2__

#define VORN_LANES 4
#define VORN_COLUMNS 4
#define VORN_FUSED 1
#define VORN_KERNEL_NAME "avx2"
#define VORN_INSTRUCTIONS avx2
#include "lsq/linalg/kernels_impl.h"

namespace vorn {

const Kernels* avx2_kernels() {
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? &kTable : nullptr;
}

}  // namespace vorn

#else

namespace vorn {

const Kernels* avx2_kernels() { return nullptr; }

}  // namespace vorn

#endif
