#include "lsq/stages/packed_equations.h"

namespace vorn {

FormPackedDesign packed_design() { return packed_design_for(kernels().instructions); }

FormPackedDesign packed_design_for(InstructionSet instructions) {
  switch (instructions) {
    case InstructionSet::avx512:
      return avx512_packed_design();
    case InstructionSet::avx2:
      return avx2_packed_design();
    default:
      return baseline_packed_design();
  }
}

}  // namespace vorn
