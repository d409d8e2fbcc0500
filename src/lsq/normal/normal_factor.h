#pragma once

#include <cstdint>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// A Cholesky factorisation N = L L' of normal equations, without pivoting and without a tolerance.
// It belongs to one matrix, whose structure is complete and stays as it is, and reads the elements
// of that matrix again on the way back: they stay as they are from `factorise` to the last use of
// the factor.
class NormalFactor {
 public:
  NormalFactor(const NormalFactor&) = delete;
  NormalFactor& operator=(const NormalFactor&) = delete;
  virtual ~NormalFactor() = default;

  const NormalMatrix& matrix() const { return normal_; }

  // 0, or k > 0 when the pivot of row k (counted from 1, in the order of the unknowns) is not
  // greater than 0.
  [[nodiscard]] virtual std::int32_t factorise() = 0;
  // Solves N x = b after `factorise`; b has an element per unknown.
  virtual void substitute(const Vector& b, Vector& x) const = 0;
  // Both in one. Codes as `factorise`; x is undefined unless it is 0.
  [[nodiscard]] virtual std::int32_t solve(const Vector& b, Vector& x) = 0;

  // N X = B for several right-hand sides, one per row.
  void substitute(const Matrix& b, Matrix& x) const;

  // The squares of the diagonal of L over the diagonal of N, by unknowns, after `factorise`: how
  // much of each unknown the unknowns before it leave undetermined, between 0 (nothing is left but
  // rounding) and 1.
  void pivot_ratios(Vector& ratios) const;
  // Diagonal of L, by unknowns.
  const Vector& diagonal() const { return diagonal_; }
  // Element (i, j), i > j, of L in the order of the unknowns; 0 before `factorise`.
  virtual double lower(std::int32_t i, std::int32_t j) const = 0;

  // Full symmetric inverse of N after `factorise`: U x U elements, for small systems.
  virtual void invert(Matrix& q) const = 0;

 protected:
  explicit NormalFactor(const NormalMatrix& normal) : normal_(normal) {}

  const NormalMatrix& normal_;
  Vector diagonal_;
};

}  // namespace vorn
