#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

const Kernels* widest() {
  if (const Kernels* const kernel = avx512_kernels()) return kernel;
  if (const Kernels* const kernel = avx2_kernels()) return kernel;
  return baseline_kernels();
}

const Kernels*& chosen() {
  static const Kernels* kernel = widest();
  return kernel;
}

}  // namespace

const Kernels& kernels() { return *chosen(); }

bool use_kernels(std::string_view name) {
  if (name.empty()) {
    chosen() = widest();
    return true;
  }
  for (const Kernels* kernel : {baseline_kernels(), avx2_kernels(), avx512_kernels()}) {
    if (kernel == nullptr || name != kernel->name) continue;
    chosen() = kernel;
    return true;
  }
  return false;
}

}  // namespace vorn
