#pragma once

#include <cstdint>
#include <vector>

#include "lsq/adj_object_list.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// Conditions n'dx = 0, |n| = 1, on single objects that the unknowns keep exactly: a fixed unknown
// has the unit vector of its column, the quaternion of an orientation the quaternion itself. With
// P = I - nn' for all conditions
//
//   N <- P N P + c nn'   has the inverse   Q + nn'/c,
//
// Q the cofactor matrix under the conditions. No column has to be taken out of the structure, and
// no large weight spoils the numbers.
class Conditions {
 public:
  // Finds the conditions of all unknowns, at the current values.
  explicit Conditions(const AdjObjectList& unknowns);

  // Restricts the normal equations. Once for a matrix that was formed anew.
  void apply(NormalMatrix& normal, Vector& rhs);

  bool is_fixed(std::int32_t unknown) const { return parts_[place(unknown)].fixed; }
  // What is to be taken from element (i, j) of the inverse: that of nn'/c.
  double excess(std::int32_t i, std::int32_t j) const {
    const Part& a = parts_[place(i)];
    const Part& b = parts_[place(j)];
    if (a.condition < 0 || a.condition != b.condition) return 0.0;
    return a.component * b.component / weights_[place(a.condition)];
  }

 private:
  // An unknown's place in its condition; condition -1 for an unknown without one.
  struct Part {
    std::int32_t condition = -1;
    double component = 0.0;
    bool fixed = false;
  };
  // The elements of the condition's vector that are not zero: consecutive unknowns.
  struct Direction {
    std::int32_t first;
    std::vector<double> n;
  };

  static std::size_t place(std::int32_t i) { return static_cast<std::size_t>(i); }
  void add(std::int32_t first, std::vector<double> n, bool fixed);
  void restrict_points(NormalMatrix& normal) const;
  void restrict_pairs(NormalMatrix& normal) const;
  // Removes the conditions' parts from rows and columns of `size` elements, `stride` apart.
  void project(double* elements, std::int32_t first_unknown, std::int32_t size,
               std::ptrdiff_t stride) const;

  std::vector<Part> parts_;            // by unknowns
  std::vector<Direction> directions_;  // by conditions
  std::vector<double> weights_;        // c of each
};

}  // namespace vorn
