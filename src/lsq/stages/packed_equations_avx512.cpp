// Observation equations of packs for processors with AVX-512: eight numbers per vector.

#include "lsq/stages/packed_equations.h"

#ifdef __AVX512F__

#include "lsq/stages/packed_equations_impl.h"

namespace vorn {

FormPackedDesign avx512_packed_design() { return form_packed_design<8>; }

}  // namespace vorn

#else

namespace vorn {

FormPackedDesign avx512_packed_design() { return nullptr; }

}  // namespace vorn

#endif
