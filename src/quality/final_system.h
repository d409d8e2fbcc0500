#pragma once

#include <cstdint>
#include <optional>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_elimination.h"
#include "quality/cofactors.h"
#include "quality/conditions.h"

namespace vorn {

class BundleProject;

// The normal equations at the final values of the unknowns, on which all figures of quality rest:
// exact derivatives, no columns of fixed unknowns, quaternion conditions as hard ones. They take
// the place of the last iteration's in the project; its solver gives its memory back.
class FinalSystem {
 public:
  explicit FinalSystem(BundleProject& project);

  // Forms and factorises the equations. 0, or k > 0 when the pivot of unknown k (counted from 1) is
  // not greater than 0, or -1 when an observation equation cannot be formed.
  [[nodiscard]] std::int32_t factorise();
  // Inverts where figures are asked for; what follows comes after it.
  void invert();

  const NormalMatrix& normal() const { return normal_; }
  double sigma0_prior() const { return sigma0_; }
  bool is_fixed(std::int32_t unknown) const { return conditions_.is_fixed(unknown); }
  // The step that an iteration from the final values would take.
  [[nodiscard]] Vector step() const;

  // Cofactor of two unknowns of the reduced part that meet in an image or in a point.
  double reduced_cofactor(std::int32_t i, std::int32_t j) const;
  // All cofactors of an unknown of the reduced part with the reduced part: element j of `column`.
  void reduced_column(std::int32_t i, Vector& column) const;
  void point_cofactors(std::int32_t point, PointCofactors& cofactors);

 private:
  [[nodiscard]] bool form();

  BundleProject& project_;
  NormalMatrix& normal_;
  double sigma0_;
  Conditions conditions_;
  PointElimination factor_;
  std::optional<Cofactors> cofactors_;
};

}  // namespace vorn
