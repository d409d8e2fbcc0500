// Kernels for processors with AVX-512: eight doubles per vector.

#include "lsq/linalg/kernels.h"

#ifdef __AVX512F__

#define VORN_LANES 8
#define VORN_COLUMNS 8
#define VORN_FUSED 1
#define VORN_KERNEL_NAME "avx512"
#define VORN_INSTRUCTIONS avx512
#include "lsq/linalg/kernels_impl.h"

namespace vorn {

const Kernels* avx512_kernels() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
                 __builtin_cpu_supports("avx512dq")
             ? &kTable
             : nullptr;
}

}  // namespace vorn

#else

namespace vorn {

const Kernels* avx512_kernels() { return nullptr; }

}  // namespace vorn

#endif
