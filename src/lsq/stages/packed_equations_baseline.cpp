// Observation equations of packs for every processor that the platform knows: two numbers per
// vector.

#include "lsq/stages/packed_equations_impl.h"

namespace vorn {

PackedFormulas baseline_packed_formulas() { return {form_packed_design<2>, find_packed_coords<2>}; }

}  // namespace vorn
