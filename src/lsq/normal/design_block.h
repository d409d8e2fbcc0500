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

}  // namespace vorn
