#pragma once

#include "lsq/normal/normal_factor.h"

namespace vorn {

// The factor of a small system, whose structure gains nothing: row by row of the full matrix, in
// the order of the unknowns.
class DenseFactor : public NormalFactor {
 public:
  explicit DenseFactor(const NormalMatrix& normal);

  [[nodiscard]] std::int32_t factorise() override;
  void substitute(const Vector& b, Vector& x) const override;
  [[nodiscard]] std::int32_t solve(const Vector& b, Vector& x) override;
  double lower(std::int32_t i, std::int32_t j) const override;
  void invert(Matrix& q) const override;

 private:
  void fill();

  Matrix values_;  // N in the upper triangle, L in the strict lower one
  bool factorised_ = false;
};

}  // namespace vorn
