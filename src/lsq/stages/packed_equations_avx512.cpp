// Observation equations of packs for processors with AVX-512: eight numbers per vector.

#include "lsq/stages/packed_equations.h"

#ifdef __AVX512F__

#include "lsq/stages/packed_equations_impl.h"

namespace vorn {

PackedFormulas avx512_packed_formulas() { return {form_packed_design<8>, find_packed_coords<8>}; }

}  // namespace vorn

#else

namespace vorn {

PackedFormulas avx512_packed_formulas() { return {}; }

}  // namespace vorn

#endif
