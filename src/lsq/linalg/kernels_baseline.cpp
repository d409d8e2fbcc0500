// Kernels for every processor that the platform knows: two doubles per vector.

#define VORN_LANES 2
#define VORN_COLUMNS 4
#define VORN_FUSED 0
#define VORN_KERNEL_NAME "baseline"
#define VORN_INSTRUCTIONS baseline
#include "lsq/linalg/kernels_impl.h"

namespace vorn {

const Kernels* baseline_kernels() { return &kTable; }

}  // namespace vorn
