#pragma once

#include <cstdint>

#include "lsq/matrix.h"
#include "text/text_writer.h"

namespace vorn {

// The symmetric matrix of the normal equations, U x U, seen element by element. Contributions go to
// the upper triangle. After `factorise` the upper triangle still holds N and the strict lower
// triangle holds the Cholesky factor L.
class NormalMatrix {
 public:
  std::int32_t size() const { return dense_.rows(); }
  // Contents are undefined after a change of size.
  void resize(std::int32_t n) { dense_.resize(n, n); }
  void zero() { dense_.zero(); }

  // N[i][j] += v for i <= j.
  void add(std::int32_t i, std::int32_t j, double v) { dense_[i][j] += v; }
  // N[i + r][j + c] += block[r][c]. Elements of it that fall below the diagonal of N are ignored.
  void add_block(std::int32_t i, std::int32_t j, const Matrix& block);
  // Upper triangle N, after `factorise` strict lower triangle L.
  double at(std::int32_t i, std::int32_t j) const { return dense_[i][j]; }

  // Cholesky factorisation; p receives the diagonal of L. Result codes as `cholesky`.
  int factorise(Vector& p);
  // Solves N x = b after `factorise`. Result codes as `back_substitution`.
  int substitute(const Vector& p, const Vector& b, Vector& x) const;
  // Full symmetric inverse after `factorise`. Result codes as `invert_from_cholesky`.
  int invert(const Vector& p, Matrix& q) const;

  // Files: the pattern as a plain portable bitmap, and all elements as `at` gives them.
  void write_structure(TextWriter& out) const;
  void write_elements(TextWriter& out) const;

 private:
  Matrix dense_;
};

}  // namespace vorn
