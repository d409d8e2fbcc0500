// The inverse of the normal matrix, whole and in parts, and its files.

#include <algorithm>
#include <vector>

#include "lsq/linalg/cholesky.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_factor.h"

namespace vorn {

int NormalMatrix::invert(const Vector& p, Matrix& q) const {
  if (p.size() != size_) return -2;
  q.resize(size_, size_);
  for (std::int32_t i = 0; i < size_; ++i) {
    for (std::int32_t j = 0; j < size_; ++j) q[i][j] = at(i, j);
  }
  // The diagonal of L, in the order of the unknowns whatever the order of the factor.
  Vector natural_p;
  if (const int code = cholesky(q, natural_p); code != 0) return code;
  if (const int code = invert_from_cholesky(q, natural_p); code != 0) return code;
  q.symmetrise();
  return 0;
}

void NormalMatrix::invert_reduced(Matrix& q) const {
  const std::int32_t n = size_ - num_point_unknowns();
  q.resize(n, n);
  if (method_ == Method::dense) {
    Matrix whole;
    invert(Vector(size_), whole);
    for (std::int32_t i = 0; i < n; ++i) {
      std::copy_n(whole[num_point_unknowns() + i] + num_point_unknowns(), n, q[i]);
    }
    return;
  }
  std::vector<std::int32_t> unknown_at(place(n));
  for (std::int32_t b = 0; b < structure_.num_blocks(); ++b) {
    for (std::int32_t c = 0; c < block_width(b); ++c) {
      unknown_at[place(reduced_.start(b) + c)] = block_index(b) + c - num_point_unknowns();
    }
  }
  std::vector<double> column(place(reduced_.tiles.num_tiles() * reduced_.tiles.tile_size()));
  for (std::int32_t row = 0; row < n; ++row) {
    std::fill(column.begin(), column.end(), 0.0);
    column[place(row)] = 1.0;
    reduced_.tiles.solve_lower(column.data());
    reduced_.tiles.solve_upper(column.data());
    for (std::int32_t k = 0; k < n; ++k) {
      q[unknown_at[place(row)]][unknown_at[place(k)]] = column[place(k)];
    }
  }
  q.symmetrise();
}

void NormalMatrix::solve_point(std::int32_t point, double (&s)[3]) const {
  PointFactor factor;
  factor.factorise(diagonal(point));
  factor.forward(s);
  factor.backward(s);
}

// Q_pr = -N_pp^-1 N_pr Q_rr
void NormalMatrix::point_block_cofactors(std::int32_t point, std::int32_t block,
                                         const Matrix& reduced, Matrix& q) const {
  const std::int32_t first = block_index(block) - num_point_unknowns();
  q.resize(3, block_width(block));
  for (std::int32_t c = 0; c < block_width(block); ++c) {
    double s[3] = {0.0, 0.0, 0.0};
    for (const PointBlock& at : blocks_of(point)) {
      const double* n = coupling(point, at);
      const double* const cofactors =
          reduced[first + c] + block_index(at.block) - num_point_unknowns();
      for (double& sum : s) {
        for (std::int32_t j = 0; j < block_width(at.block); ++j) sum += *n++ * cofactors[j];
      }
    }
    solve_point(point, s);
    for (std::int32_t r = 0; r < 3; ++r) q[r][c] = -s[r];
  }
}

// Q_pp = N_pp^-1 (I - N_pr Q_rp), column by column.
void NormalMatrix::point_cofactors(std::int32_t point, const Matrix& reduced, Matrix& q) const {
  Matrix columns(3, 3);
  columns.zero();
  for (std::int32_t c = 0; c < 3; ++c) columns[c][c] = 1.0;
  Matrix coupled;
  for (const PointBlock& at : blocks_of(point)) {
    point_block_cofactors(point, at.block, reduced, coupled);
    const double* const n = coupling(point, at);
    const std::int32_t width = block_width(at.block);
    for (std::int32_t c = 0; c < 3; ++c) {
      for (std::int32_t r = 0; r < 3; ++r) {
        for (std::int32_t j = 0; j < width; ++j) columns[c][r] -= n[r * width + j] * coupled[c][j];
      }
    }
  }
  q.resize(3, 3);
  for (std::int32_t c = 0; c < 3; ++c) {
    double s[3] = {columns[c][0], columns[c][1], columns[c][2]};
    solve_point(point, s);
    for (std::int32_t r = 0; r < 3; ++r) q[r][c] = s[r];
  }
  q.symmetrise();
}

void NormalMatrix::write_structure(TextWriter& out) const {
  out << "P1\n" << size_ << ' ' << size_ << "\n\n";
  for (std::int32_t i = 0; i < size_; ++i) {
    for (std::int32_t j = 0; j < size_; ++j) {
      out << (at(std::min(i, j), std::max(i, j)) == 0.0 ? "0 " : "1 ");
    }
    out << '\n';
  }
}

void NormalMatrix::write_elements(TextWriter& out) const {
  constexpr NumberFormat kElement = scientific(12);
  out << size_ << ' ' << size_ << '\n';
  for (std::int32_t i = 0; i < size_; ++i) {
    for (std::int32_t j = 0; j < size_; ++j) out << kElement(at(i, j)) << ' ';
    out << '\n';
  }
}

}  // namespace vorn
