#pragma once

#include <cstdint>
#include <vector>

#include "lsq/matrix.h"

namespace vorn {

class NormalMatrix;

// Derivatives of a group of observations with respect to the parameters of one object: an
// m x n matrix and the number of the object's first unknown.
struct DesignBlock {
  Matrix a;
  std::int32_t index = -1;
};

// Adds observations with individual weights to the normal equations:
// N += A'PA, rhs += A'Pl, vtpv += l'Pl with P = diag(weights). Blocks stand in ascending order of
// their unknowns. All arrays have m elements, m the number of rows of each block.
void add_weighted_observations(const std::vector<const DesignBlock*>& blocks, const Vector& weights,
                               const Vector& reduced, NormalMatrix& normal, Vector& rhs,
                               double& vtpv);

// Adds one group of correlated observations. B (m x m) holds the derivatives of the conditions with
// respect to the observations, Q (m x m) their cofactors; the weight matrix is (B Q B')^-1.
// False, with a message on standard output and nothing added, when it is not positive definite.
bool add_observation_group(const std::vector<const DesignBlock*>& blocks, const Matrix& b,
                           const Matrix& cofactors, const Vector& reduced, NormalMatrix& normal,
                           Vector& rhs, double& vtpv);

}  // namespace vorn
