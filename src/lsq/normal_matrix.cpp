#include "lsq/normal_matrix.h"

#include "lsq/cholesky.h"

namespace vorn {

void NormalMatrix::add_block(std::int32_t i, std::int32_t j, const Matrix& block) {
  for (std::int32_t r = 0; r < block.rows(); ++r) {
    double* const row = dense_[i + r];
    for (std::int32_t c = i + r > j ? i + r - j : 0; c < block.cols(); ++c)
      row[j + c] += block[r][c];
  }
}

int NormalMatrix::factorise(Vector& p) { return cholesky(dense_, p); }

int NormalMatrix::substitute(const Vector& p, const Vector& b, Vector& x) const {
  return back_substitution(dense_, p, b, x);
}

int NormalMatrix::invert(const Vector& p, Matrix& q) const {
  q = dense_;
  if (const int code = invert_from_cholesky(q, p); code != 0) return code;
  q.symmetrise();
  return 0;
}

void NormalMatrix::write_structure(TextWriter& out) const { write_sparsity_pbm(out, dense_); }

void NormalMatrix::write_elements(TextWriter& out) const {
  constexpr NumberFormat kElement = scientific(12);
  out << size() << ' ' << size() << '\n';
  for (std::int32_t i = 0; i < size(); ++i) {
    for (std::int32_t j = 0; j < size(); ++j) out << kElement(at(i, j)) << ' ';
    out << '\n';
  }
}

}  // namespace vorn
