// Observation equations of packs for processors with AVX2: four numbers per vector.

#include "lsq/stages/packed_equations.h"

#ifdef __AVX2__

#include "lsq/stages/packed_equations_impl.h"

namespace vorn {

FormPackedDesign avx2_packed_design() { return form_packed_design<4>; }

}  // namespace vorn

#else

namespace vorn {

FormPackedDesign avx2_packed_design() { return nullptr; }

}  // namespace vorn

#endif
