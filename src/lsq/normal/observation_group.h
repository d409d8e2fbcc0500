#pragma once

#include <vector>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/design_block.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// Adds observations with individual weights to the normal equations:
// N += A'PA, rhs += A'Pl, vtpv += l'Pl with P = diag(weights) and l the misclosures. Blocks stand
// in ascending order of their unknowns. All arrays have m elements, m the number of rows of each
// block.
void add_weighted_observations(const std::vector<const DesignBlock*>& blocks, const Vector& weights,
                               const Vector& misclosures, NormalMatrix& normal, Vector& rhs,
                               double& vtpv);

}  // namespace vorn
