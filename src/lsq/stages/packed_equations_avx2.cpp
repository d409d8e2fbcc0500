// Observation equations of packs for processors with AVX2: four numbers per vector.

#include "lsq/stages/packed_equations.h"

#ifdef __AVX2__

#include "lsq/stages/packed_equations_impl.h"

namespace vorn {

PackedFormulas avx2_packed_formulas() { return {form_packed_design<4>, find_packed_coords<4>}; }

}  // namespace vorn

#else

namespace vorn {

PackedFormulas avx2_packed_formulas() { return {}; }

}  // namespace vorn

#endif
