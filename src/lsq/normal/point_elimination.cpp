// Elimination of the object points. Points never meet one another: with p for the unknowns of one
// point and r for those of the reduced part, in blocks,
//
//       | N_pp  N_pr |         | L_p  0   |        N_pp = L_p L_p'            3 x 3, per point
//   N = |            | = L L', | V'   L_r | = L,   V    = L_p^-1 N_pr         3 x width, per point
//       |  sym  N_rr |                             S    = N_rr - sum of V'V   = L_r L_r'
//
// so the Cholesky factorisation in the order of the unknowns is an elimination point by point,
// which leaves the reduced normal equations S (Brown 1958), followed by the factorisation of S. In
// the same manner N x = b is
//
//   y   = L_p^-1 b_p               per point, on the way down
//   x_r = S^-1 (b_r - sum of V'y)
//   x_p = L_p^-T (y - V x_r)       per point, on the way back
//
// and the inverse Q of N
//
//   Q_rr = S^-1,   Q_pr = -L_p^-T V Q_rr,   Q_pp = L_p^-T (I + V Q_rr V') L_p^-1.
//
// (parts of which selected_inverse.h gives). L_p and V are formed again where they are needed:
// storing them would cost more memory traffic than forming them costs arithmetic; so may be N_pr
// itself (couplings.cpp). The blocks of S
// stand in an order of their own, which keeps L_r sparse.

#include "lsq/normal/point_elimination.h"

#include <algorithm>
#include <span>

#include "base/place.h"
#include "base/workers.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/point_factor.h"

namespace vorn {
namespace {

constexpr auto kBatch = static_cast<std::size_t>(kBatchPoints);

// S := N_rr, in the lower triangle.
void load(const NormalMatrix& normal, ReducedMatrix& reduced) {
  reduced.tiles.zero();
  normal.for_each_pair([&](std::int32_t a, std::int32_t b, const double* element) {
    for (std::int32_t r = 0; r < normal.block_width(a); ++r) {
      for (std::int32_t c = 0; c < normal.block_width(b); ++c, ++element) {
        // Within a diagonal block only the upper triangle counts.
        if (a == b && c < r) continue;
        const std::int32_t row = reduced.start(a) + r;
        const std::int32_t column = reduced.start(b) + c;
        reduced.tiles.element(std::max(row, column), std::min(row, column)) = *element;
      }
    }
  });
}

// The first failing pivot of the points' diagonal blocks, counted from 1.
std::int32_t first_failing_point_pivot(const NormalMatrix& normal) {
  PointFactor factor;
  for (std::int32_t p = 0; p < normal.num_points(); ++p) {
    if (const std::int32_t failed = factor.factorise(normal.diagonal(p)); failed != 0) {
      return 3 * p + failed;
    }
  }
  return 0;
}

// S = N_rr - sum of V'V = L_r L_r'. The points' part of the diagonal of L goes to `diagonal`,
// unless it is null. 0, or k for a failing pivot, counted from 1: of a point's unknown k, or of row
// k - (number of the points' unknowns) of the reduced matrix.
std::int32_t reduce_and_factorise(const NormalMatrix& normal, PointBatch& batch,
                                  ReducedMatrix& reduced, double* diagonal,
                                  const ForwardPass* forward) {
  load(normal, reduced);
  if (!batch.eliminate_all(diagonal, forward)) return first_failing_point_pivot(normal);
  const std::int32_t failed = reduced.tiles.factorise();
  return failed == 0 ? 0 : normal.num_point_unknowns() + failed;
}

}  // namespace

// ---- factorisation -----------------------------------------------------------------------------

bool PointElimination::set_structure(Order order) {
  return reduced_.set_structure(normal_.structure(), normal_.point_blocks(),
                                order == Order::natural);
}

bool PointElimination::set_reduced_structure() {
  return reduced_.set_unfilled_structure(normal_.structure(), normal_.point_blocks());
}

std::int32_t PointElimination::factorise() { return factorise(nullptr); }

std::int32_t PointElimination::factorise(const ForwardPass* forward) {
  if (!batch_) batch_ = std::make_unique<PointBatch>(normal_, reduced_);
  diagonal_.resize(normal_.size());
  const std::int32_t num_point_unknowns = normal_.num_point_unknowns();
  const std::int32_t failed =
      reduce_and_factorise(normal_, *batch_, reduced_, diagonal_.data(), forward);
  factorised_ = failed == 0;
  if (failed > num_point_unknowns) return failing_unknown(failed - num_point_unknowns - 1) + 1;
  if (failed != 0) return failed;
  for (std::int32_t b = 0; b < normal_.num_blocks(); ++b) {
    for (std::int32_t c = 0; c < normal_.block_width(b); ++c) {
      const std::int32_t row = reduced_.start(b) + c;
      diagonal_[normal_.block_index(b) + c] = reduced_.tiles.at(row, row);
    }
  }
  return 0;
}

// The unknown at which the factorisation in the order of the unknowns fails, when that of the
// reduced matrix fails at a row.
std::int32_t PointElimination::failing_unknown(std::int32_t row) const {
  if (!reduced_.is_natural()) {
    ReducedMatrix natural;
    if (natural.set_structure(normal_.structure(), normal_.point_blocks(), true)) {
      PointBatch batch(normal_, natural);
      const std::int32_t failed = reduce_and_factorise(normal_, batch, natural, nullptr, nullptr);
      if (failed != 0) return failed - 1;
    }
    // Rounding decides: in the order of the unknowns all pivots are positive.
  }
  const std::int32_t block = reduced_.block_at(row);
  return normal_.block_index(block) + row - reduced_.start(block);
}

double PointElimination::lower(std::int32_t i, std::int32_t j) const {
  if (!factorised_) return 0.0;
  const std::int32_t first_reduced = normal_.num_point_unknowns();
  if (j >= first_reduced) return reduced_.tiles.at(i - first_reduced, j - first_reduced);
  PointFactor factor;
  (void)factor.factorise(normal_.diagonal(j / 3));  // passed when N was factorised
  if (i < first_reduced) {
    if (i / 3 != j / 3) return 0.0;
    if (i % 3 == 1) return factor.l10();
    return j % 3 == 0 ? factor.l20() : factor.l21();
  }
  const NormalMatrix::PointBlock* const at = normal_.find_point_block(j / 3, normal_.block_of(i));
  if (at == nullptr) return 0.0;
  const double* const column = normal_.coupling(j / 3, *at) + (i - normal_.block_index(at->block));
  const std::ptrdiff_t width = normal_.block_width(at->block);
  double v[3] = {column[0], column[width], column[2 * width]};
  factor.forward(v);
  return v[j % 3];
}

// ---- substitution ------------------------------------------------------------------------------

// b_r, in the order of the reduced matrix, with room for a piece behind it.
std::vector<double> PointElimination::reduced_rhs(const Vector& b) const {
  const TileMatrix& tiles = reduced_.tiles;
  std::vector<double> rhs(place(tiles.num_tiles() * tiles.tile_size() + kPieceWidth), 0.0);
  for (std::int32_t k = 0; k < normal_.num_blocks(); ++k) {
    std::copy_n(b.data() + normal_.block_index(k), normal_.block_width(k),
                rhs.data() + reduced_.start(k));
  }
  return rhs;
}

std::int32_t PointElimination::solve(const Vector& b, Vector& x) {
  x.resize(normal_.size());
  std::vector<double> rhs = reduced_rhs(b);
  const ForwardPass forward{b.data(), x.data(), rhs.data()};
  const std::int32_t failed = factorise(&forward);
  if (failed == 0) substitute_back(rhs, x);
  return failed;
}

std::int32_t PointElimination::reduce(const Vector& b, Vector& x, std::vector<double>& rhs) {
  if (!batch_) batch_ = std::make_unique<PointBatch>(normal_, reduced_);
  x.resize(normal_.size());
  diagonal_.resize(normal_.size());
  rhs = reduced_rhs(b);
  const ForwardPass forward{b.data(), x.data(), rhs.data()};
  load(normal_, reduced_);
  if (batch_->eliminate_all(diagonal_.data(), &forward)) return 0;
  return first_failing_point_pivot(normal_);
}

void PointElimination::substitute(const Vector& b, Vector& x) const {
  x.resize(normal_.size());
  std::vector<double> rhs = reduced_rhs(b);
  batch_->reduce_rhs({b.data(), x.data(), rhs.data()});
  substitute_back(rhs, x);
}

// x_r = S^-1 (b_r - V'y).
void PointElimination::substitute_back(std::vector<double>& reduced, Vector& x) const {
  reduced_.tiles.solve_lower(reduced.data());
  reduced_.tiles.solve_upper(reduced.data());
  for (std::int32_t k = 0; k < normal_.num_blocks(); ++k) {
    std::copy_n(reduced.data() + reduced_.start(k), normal_.block_width(k),
                x.data() + normal_.block_index(k));
  }
  complete(x);
}

// x_p = L_p^-T (y - L_p^-1 N_pr x_r), with y in the place of x_p.
void PointElimination::complete(Vector& x) const {
  constexpr std::size_t kGrain = 8;
  for_each_range(num_batches(), kGrain, [&](std::size_t begin, std::size_t end, std::size_t) {
    Couplings couplings = normal_.couplings();
    for (std::size_t batch = begin; batch < end; ++batch) substitute_batch(batch, couplings, x);
  });
}

// The same for the points of a batch.
void PointElimination::substitute_batch(std::size_t batch, Couplings& couplings, Vector& x) const {
  // Points lie far apart: they are asked for while the batch is formed.
  for (std::size_t rank = batch * kBatch; rank < end_of(batch); ++rank) {
    __builtin_prefetch(x.data() + place(3 * normal_.point_order()[rank]), 1);
  }
  const double* product = couplings.multiply(batch, x);  // N_pr x_r
  PointFactor factor;
  for (std::size_t rank = batch * kBatch; rank < end_of(batch); ++rank) {
    const std::int32_t i = normal_.point_order()[rank];
    (void)factor.factorise(normal_.diagonal_at(rank));  // passed when N was factorised
    double s[3] = {product[0], product[1], product[2]};
    product += 3;
    factor.forward(s);
    for (std::int32_t r = 0; r < 3; ++r) s[r] = x[3 * i + r] - s[r];
    factor.backward(s);
    std::copy_n(s, 3, x.data() + place(3 * i));
  }
}

std::size_t PointElimination::num_batches() const {
  return (normal_.point_order().size() + kBatch - 1) / kBatch;
}

// The place behind the last point of a batch.
std::size_t PointElimination::end_of(std::size_t batch) const {
  return std::min(normal_.point_order().size(), (batch + 1) * kBatch);
}

// ---- inverse -----------------------------------------------------------------------------------

void PointElimination::invert(Matrix& q) const {
  const std::int32_t n = normal_.size();
  q.resize(n, n);
  Vector unit(n);
  unit.zero();
  Vector column;
  for (std::int32_t i = 0; i < n; ++i) {
    unit[i] = 1.0;
    substitute(unit, column);
    unit[i] = 0.0;
    std::copy_n(column.data(), n, q[i]);
  }
  q.symmetrise();
}

}  // namespace vorn
