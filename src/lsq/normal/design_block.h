#pragma once

#include <cstdint>

#include "lsq/linalg/matrix.h"

namespace vorn {

// Derivatives of a group of observations with respect to the parameters of one object: an
// m x n matrix and the number of the object's first unknown.
struct DesignBlock {
  Matrix a;
  std::int32_t index = -1;
};

// Two rows of a design matrix, x and y: of numbers, or of packs of numbers.
template <class T>
struct RowPair {
  T* x;
  T* y;
};

}  // namespace vorn
