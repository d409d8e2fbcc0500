#include "lsq/stages/packed_equations.h"

namespace vorn {

PackedFormulas packed_formulas() { return packed_formulas_for(kernels().instructions); }

PackedFormulas packed_formulas_for(InstructionSet instructions) {
  switch (instructions) {
    case InstructionSet::avx512:
      return avx512_packed_formulas();
    case InstructionSet::avx2:
      return avx2_packed_formulas();
    default:
      return baseline_packed_formulas();
  }
}

}  // namespace vorn
