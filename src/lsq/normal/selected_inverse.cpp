#include "lsq/normal/selected_inverse.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "base/lanes.h"
#include "base/place.h"

namespace vorn {
namespace {

constexpr auto kRow = static_cast<std::size_t>(kPieceWidth);

// Of a 3 x 3 matrix: xx, xy, xz, yy, yz, zz.
using Symmetric = std::array<double, 6>;

// What every processor computes with at once, and how often that is a row of eight.
using Two = Lanes<2>;
constexpr std::size_t kParts = kRow / 2;

// The sum of the elements of a row.
double sum_of(const Two (&row)[kParts]) {
  double elements[kRow];
  for (std::size_t part = 0; part < kParts; ++part) row[part].store(elements + 2 * part);
  double sum = 0.0;
  for (const double element : elements) sum += element;
  return sum;
}

// Puts the blocks of Q_pr = -L_p^-T U in their places; returns M = I + U V'.
Symmetric find_coupled(const PointBatch::PointProduct& product, double* coupled) {
  Two sums[6][kParts] = {};
  for (const PointBatch::PieceProduct& piece : product.pieces) {
    double rows[3][kRow];
    for (std::size_t part = 0; part < kParts; ++part) {
      const double* const from = piece.u + 2 * part;
      const Two u[3] = {Two::load(from), Two::load(from + kRow), Two::load(from + 2 * kRow)};
      std::size_t k = 0;
      for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = r; c < 3; ++c) {
          sums[k++][part] += u[r] * Two::load(piece.v + kRow * c + 2 * part);
        }
      }
      Two q[3] = {-u[0], -u[1], -u[2]};
      product.factor.backward(q);
      for (std::size_t r = 0; r < 3; ++r) q[r].store(rows[r] + 2 * part);
    }
    double* to = coupled + piece.start;
    for (const double(&row)[kRow] : rows) {
      std::copy_n(row, piece.width, to);
      to += piece.stride;
    }
  }
  Symmetric m;
  for (std::size_t k = 0; k < m.size(); ++k) m[k] = sum_of(sums[k]);
  for (double* diagonal : {&m[0], &m[3], &m[5]}) *diagonal += 1.0;
  return m;
}

// Q_pp = L_p^-T M L_p^-1: L_p^-T M by columns, then the other factor by rows.
void find_own(const PointFactor& factor, const Symmetric& m, double (&own)[3][3]) {
  double columns[3][3] = {{m[0], m[1], m[2]}, {m[1], m[3], m[4]}, {m[2], m[4], m[5]}};
  for (double(&column)[3] : columns) factor.backward(column);
  for (std::size_t r = 0; r < 3; ++r) {
    double row[3] = {columns[0][r], columns[1][r], columns[2][r]};
    factor.backward(row);
    std::copy_n(row, 3, own[r]);
  }
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < r; ++c) own[r][c] = own[c][r];
  }
}

}  // namespace

void SelectedInverse::block_pair(std::int32_t a, std::int32_t b, Matrix& q) const {
  q.resize(normal_.block_width(a), normal_.block_width(b));
  for (std::int32_t r = 0; r < q.rows(); ++r) {
    for (std::int32_t c = 0; c < q.cols(); ++c) {
      q[r][c] = inverse_.at(reduced_.start(a) + r, reduced_.start(b) + c);
    }
  }
}

void SelectedInverse::find_cofactors(std::size_t batch,
                                     std::span<const PointBatch::PointProduct> products,
                                     BatchCofactors& cofactors) const {
  const std::size_t first = batch * place(kBatchPoints);
  const auto width_of = [&](std::size_t k) {
    return 3 * place(normal_.coupled_width(normal_.point_order()[first + k]));
  };
  cofactors.points.resize(products.size());
  std::size_t room = 0;
  for (std::size_t k = 0; k < products.size(); ++k) room += width_of(k);
  cofactors.coupled.resize(std::max(cofactors.coupled.size(), room));
  double* coupled = cofactors.coupled.data();
  for (std::size_t k = 0; k < products.size(); ++k) {
    PointCofactors& point = cofactors.points[k];
    point.point = normal_.point_order()[first + k];
    point.blocks = normal_.blocks_at(first + k);
    point.coupled = coupled;
    find_own(products[k].factor, find_coupled(products[k], coupled), point.own);
    coupled += width_of(k);
  }
}

}  // namespace vorn
