// Observation equations of packs for every processor that the platform knows: two numbers per
// vector.

#include "lsq/stages/packed_equations_impl.h"

namespace vorn {

FormPackedDesign baseline_packed_design() { return form_packed_design<2>; }

}  // namespace vorn
