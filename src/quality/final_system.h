#pragma once

#include <cstdint>
#include <memory>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_elimination.h"
#include "lsq/normal/selected_inverse.h"
#include "quality/conditions.h"
#include "quality/unknown_weights.h"

namespace vorn {

class BundleProject;

// The normal equations at the final values of the unknowns, on which all figures of quality rest:
// exact derivatives, no columns of fixed unknowns, quaternion conditions as hard ones. They take
// the place of the last iteration's in the project, and so does their solution; the solver gives
// its factor and its memory.
class FinalSystem {
 public:
  explicit FinalSystem(BundleProject& project);

  // Forms and factorises the equations. 0, or k > 0 when the pivot of unknown k (counted from 1) is
  // not greater than 0, or -1 when an observation equation cannot be formed.
  [[nodiscard]] std::int32_t factorise();
  // Inverts where figures are asked for; what follows comes after it. False when the inverse does
  // not fit the address space.
  [[nodiscard]] bool invert() { return inverse_.compute(); }

  const NormalMatrix& normal() const { return normal_; }
  double sigma0_prior() const { return sigma0_; }
  bool is_fixed(std::int32_t unknown) const { return conditions_.is_fixed(unknown); }
  // What stood on the diagonal of N before conditions restricted it.
  const UnknownWeights& weights() const { return weights_; }
  // p_i^2/N_ii of the factorisation.
  double pivot_ratio(std::int32_t unknown) const {
    const double pivot = factor_->diagonal()[unknown];
    return pivot * pivot / weights_.diagonal(unknown);
  }
  // The step that an iteration from the final values would take; for iterations that were not
  // rigorous, since it is nothing after those that were.
  [[nodiscard]] const Vector& step() const;
  // Solution for a right-hand side that is zero for fixed unknowns and orientations.
  [[nodiscard]] Vector solve(const Vector& rhs) const;

  // Whether the cofactor of two unknowns of the reduced part is known: of all that meet in an image
  // or in a point; and the cofactor.
  bool has_cofactor(std::int32_t i, std::int32_t j) const { return inverse_.has(i, j); }
  double cofactor(std::int32_t i, std::int32_t j) const {
    if (is_fixed(i) || is_fixed(j)) return 0.0;
    return inverse_.at(i, j) - conditions_.excess(i, j);
  }
  // Column i of the inverse.
  void find_column(std::int32_t i, Vector& column) const;
  // The reduced part of a column of the reduced part, as far as it is known; where it is not it is
  // solved for, unless that may not be: then it is not a number.
  void find_reduced_column(std::int32_t i, bool may_solve, Vector& column) const;
  // As SelectedInverse::for_each_batch.
  template <class Visit>
  void for_each_batch(bool alone, Visit visit) const {
    inverse_.for_each_batch(alone, [&](std::size_t batch, auto points, std::size_t worker) {
      // What conditions add stands on the diagonal of fixed coordinates.
      for (SelectedInverse::PointCofactors& cofactors : points) {
        for (std::int32_t axis = 0; axis < 3; ++axis) {
          if (is_fixed(3 * cofactors.point + axis)) cofactors.own[axis][axis] = 0.0;
        }
      }
      visit(batch, points, worker);
    });
  }

 private:
  [[nodiscard]] bool form();

  BundleProject& project_;
  NormalMatrix& normal_;
  double sigma0_;
  Conditions conditions_;
  UnknownWeights weights_;
  std::unique_ptr<PointElimination> factor_;
  SelectedInverse inverse_;
};

}  // namespace vorn
