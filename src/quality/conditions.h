#pragma once

#include <cstdint>
#include <vector>

#include "base/place.h"
#include "lsq/adj_object_list.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// Conditions n'dx = 0, |n| = 1, on single objects that the unknowns keep exactly: a fixed unknown
// has the unit vector of its column, the quaternion of an orientation the quaternion itself. They
// are taken out of the normal equations (`NormalMatrix::take_out`), so that no column has to leave
// the structure and no large weight spoils the numbers; the inverse is then Q + nn'/c, where Q is
// the cofactor matrix under the conditions.
class Conditions {
 public:
  // Finds the conditions of all unknowns, at the current values.
  explicit Conditions(const AdjObjectList& unknowns);

  bool is_empty() const { return directions_.empty(); }
  // Restricts normal equations that were formed anew.
  void apply(NormalMatrix& normal, Vector& rhs);

  bool is_fixed(std::int32_t unknown) const { return !is_empty() && parts_[place(unknown)].fixed; }
  // What is to be taken from element (i, j) of the inverse: that of nn'/c.
  double excess(std::int32_t i, std::int32_t j) const {
    if (is_empty()) return 0.0;
    const Part& a = parts_[place(i)];
    const Part& b = parts_[place(j)];
    if (a.condition < 0 || a.condition != b.condition) return 0.0;
    return a.component * b.component / directions_[place(a.condition)].weight;
  }

 private:
  // An unknown's place in its condition; condition -1 for an unknown without one.
  struct Part {
    std::int32_t condition = -1;
    double component = 0.0;
    bool fixed = false;
  };

  void add(std::int32_t first, std::vector<double> n, bool fixed);

  std::int32_t num_unknowns_;
  std::vector<Part> parts_;                          // by unknowns; empty without conditions
  std::vector<NormalMatrix::Direction> directions_;  // of the conditions
};

}  // namespace vorn
