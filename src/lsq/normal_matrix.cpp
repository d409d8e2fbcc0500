#include "lsq/normal_matrix.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace vorn {
namespace {

// Place of element (i, j), i <= j, in the diagonal block of a point.
std::size_t diagonal_place(std::int32_t i, std::int32_t j) {
  return static_cast<std::size_t>(i == 0 ? j : i + j + 1);
}

}  // namespace

// ---- structure ---------------------------------------------------------------------------------

bool NormalMatrix::set_structure(const NormalStructure& structure, bool natural_order) {
  structure_ = structure;
  size_ = structure.num_unknowns();
  num_points_ = structure.num_points();
  lay_out_blocks(structure);
  const NormalStructure::PointBlocks blocks = structure.point_blocks();
  if (!lay_out_points(structure, blocks) || !lay_out_pairs(structure) ||
      !reduced_.set_structure(structure, blocks, natural_order)) {
    return false;
  }
  zero();
  return true;
}

void NormalMatrix::resize(std::int32_t n) {
  if (n == size_ && num_points_ == 0) return;
  NormalStructure structure;
  if (n > 0) structure.add_group({structure.add_block(n)});
  if (!set_structure(structure, true)) throw std::bad_alloc();
}

void NormalMatrix::lay_out_blocks(const NormalStructure& structure) {
  blocks_.clear();
  std::int32_t index = num_point_unknowns();
  for (std::int32_t b = 0; b < structure.num_blocks(); ++b) {
    blocks_.push_back({index, structure.width(b)});
    index += structure.width(b);
  }
}

bool NormalMatrix::lay_out_points(const NormalStructure& structure,
                                  const NormalStructure::PointBlocks& blocks) {
  points_.clear();
  point_blocks_.clear();
  points_.reserve(place(num_points_));
  point_blocks_.reserve(blocks.blocks.size());
  std::uint64_t room = 0;
  for (std::int32_t p = 0; p < num_points_; ++p) {
    PointEntry entry{static_cast<std::size_t>(room), point_blocks_.size(), 0, 0};
    for (const std::int32_t block : blocks.of(p)) {
      point_blocks_.push_back({block, entry.stride});
      entry.stride += structure.width(block);
      ++entry.num_blocks;
    }
    points_.push_back(entry);
    room += kDiagonalRoom + 3 * static_cast<std::uint64_t>(entry.stride);
    if (!LargeArray::fits(room)) return false;
  }
  point_values_.resize(static_cast<std::size_t>(room));
  return true;
}

bool NormalMatrix::lay_out_pairs(const NormalStructure& structure) {
  pairs_.assign(blocks_.size(), {});
  for (std::int32_t b = 0; b < structure.num_blocks(); ++b) pairs_[place(b)].push_back({b, 0});
  for (std::int32_t g = 0; g < structure.num_groups(); ++g) {
    for (const std::int32_t a : structure.group(g)) {
      for (const std::int32_t b : structure.group(g)) {
        if (a < b) pairs_[place(a)].push_back({b, 0});
      }
    }
  }
  std::uint64_t room = 0;
  for (std::size_t a = 0; a < pairs_.size(); ++a) {
    std::vector<BlockPair>& pairs = pairs_[a];
    std::sort(pairs.begin(), pairs.end(),
              [](const BlockPair& x, const BlockPair& y) { return x.other < y.other; });
    pairs.erase(
        std::unique(pairs.begin(), pairs.end(),
                    [](const BlockPair& x, const BlockPair& y) { return x.other == y.other; }),
        pairs.end());
    for (BlockPair& pair : pairs) {
      pair.offset = static_cast<std::size_t>(room);
      room += static_cast<std::uint64_t>(blocks_[a].width) *
              static_cast<std::uint64_t>(blocks_[place(pair.other)].width);
      if (!LargeArray::fits(room)) return false;
    }
  }
  pair_values_.resize(static_cast<std::size_t>(room));
  return true;
}

// ---- elements ----------------------------------------------------------------------------------

void NormalMatrix::zero() {
  point_values_.zero();
  pair_values_.zero();
  factorised_ = false;
  natural_.reset();
}

NormalMatrix::PointRows NormalMatrix::point_rows(std::int32_t point) {
  const PointEntry& entry = points_[place(point)];
  double* const rows = point_values_.data() + entry.rows;
  return {rows, rows + kDiagonalRoom, entry.stride};
}

const NormalMatrix::PointBlock* NormalMatrix::find_point_block(std::int32_t point,
                                                               std::int32_t block) const {
  const PointEntry& entry = points_[place(point)];
  const PointBlock* const first = point_blocks_.data() + entry.first_block;
  const PointBlock* const last = first + entry.num_blocks;
  const PointBlock* const found = std::lower_bound(
      first, last, block, [](const PointBlock& x, std::int32_t b) { return x.block < b; });
  return found != last && found->block == block ? found : nullptr;
}

std::int32_t NormalMatrix::column_of(std::int32_t point, std::int32_t block) const {
  const PointBlock* const found = find_point_block(point, block);
  if (found == nullptr) throw std::out_of_range("normal matrix: point and block do not meet");
  return found->column;
}

double* NormalMatrix::block_pair(std::int32_t a, std::int32_t b) {
  const std::vector<BlockPair>& pairs = pairs_[place(a)];
  const auto found =
      std::lower_bound(pairs.begin(), pairs.end(), b,
                       [](const BlockPair& x, std::int32_t other) { return x.other < other; });
  if (found == pairs.end() || found->other != b) return nullptr;
  return pair_values_.data() + found->offset;
}

// The stored element (i, j), i <= j; null for a structural zero.
const double* NormalMatrix::find(std::int32_t i, std::int32_t j) const {
  const std::int32_t reduced = num_point_unknowns();
  if (j < reduced) {
    return i / 3 == j / 3 ? diagonal(i / 3) + diagonal_place(i % 3, j % 3) : nullptr;
  }
  const std::int32_t block = block_of(j);
  const std::int32_t column = j - block_index(block);
  if (i < reduced) {
    const PointBlock* const found = find_point_block(i / 3, block);
    if (found == nullptr) return nullptr;
    return diagonal(i / 3) + kDiagonalRoom + place(i % 3) * place(points_[place(i / 3)].stride) +
           place(found->column + column);
  }
  const std::int32_t row_block = block_of(i);
  // The look-up changes nothing; it only gives access to what belongs to this object.
  const double* const pair = const_cast<NormalMatrix*>(this)->block_pair(row_block, block);
  if (pair == nullptr) return nullptr;
  return pair + place(i - block_index(row_block)) * place(block_width(block)) + place(column);
}

void NormalMatrix::add(std::int32_t i, std::int32_t j, double v) {
  const double* const element = find(i, j);
  if (element == nullptr) throw std::out_of_range("normal matrix: element outside the structure");
  *const_cast<double*>(element) += v;
}

void NormalMatrix::add_block(std::int32_t i, std::int32_t j, const Matrix& block) {
  for (std::int32_t r = 0; r < block.rows(); ++r) {
    for (std::int32_t c = i + r > j ? i + r - j : 0; c < block.cols(); ++c) {
      add(i + r, j + c, block[r][c]);
    }
  }
}

double NormalMatrix::at(std::int32_t i, std::int32_t j) const {
  if (i > j) return factorised_ ? factor_at(i, j) : 0.0;
  const double* const element = find(i, j);
  return element == nullptr ? 0.0 : *element;
}

// ---- factorisation -----------------------------------------------------------------------------

// The elimination of one point: L of its 3 x 3 diagonal block and V = L^-1 N_pr.
class NormalMatrix::Elimination {
 public:
  explicit Elimination(const NormalMatrix& normal) : normal_(normal) {}

  // Factorises the diagonal block. 0, or k when its pivot k (counted from 1) is not greater than 0.
  std::int32_t factorise(std::int32_t point) {
    const double* const n = normal_.diagonal(point);
    rows_ = n + kDiagonalRoom;
    stride_ = normal_.points_[place(point)].stride;
    // Negated comparisons, so that pivots that are not numbers fail.
    if (!(n[0] > 0.0)) return 1;
    l[0] = std::sqrt(n[0]);
    l[1] = n[1] / l[0];
    l[3] = n[2] / l[0];
    const double d1 = n[3] - l[1] * l[1];
    if (!(d1 > 0.0)) return 2;
    l[2] = std::sqrt(d1);
    l[4] = (n[4] - l[3] * l[1]) / l[2];
    const double d2 = n[5] - l[3] * l[3] - l[4] * l[4];
    if (!(d2 > 0.0)) return 3;
    l[5] = std::sqrt(d2);
    return 0;
  }

  // x := L^-1 x for one column.
  void forward(double& x0, double& x1, double& x2) const {
    x0 /= l[0];
    x1 = (x1 - l[1] * x0) / l[2];
    x2 = (x2 - l[3] * x0 - l[4] * x1) / l[5];
  }
  // x := L^-T x for one column.
  void backward(double& x0, double& x1, double& x2) const {
    x2 /= l[5];
    x1 = (x1 - l[4] * x2) / l[2];
    x0 = (x0 - l[1] * x1 - l[3] * x2) / l[0];
  }

  // V = L^-1 N_pr, 3 x stride.
  void form_v(std::vector<double>& v) const {
    const auto n = static_cast<std::size_t>(stride_);
    if (v.size() < 3 * n) v.resize(3 * n);
    const double i0 = 1.0 / l[0];
    const double i1 = 1.0 / l[2];
    const double i2 = 1.0 / l[5];
    double* const v0 = v.data();
    double* const v1 = v0 + n;
    double* const v2 = v1 + n;
    for (std::size_t c = 0; c < n; ++c) {
      const double x0 = rows_[c] * i0;
      const double x1 = (rows_[n + c] - l[1] * x0) * i1;
      v0[c] = x0;
      v1[c] = x1;
      v2[c] = (rows_[2 * n + c] - l[3] * x0 - l[4] * x1) * i2;
    }
  }

  const double* rows() const { return rows_; }
  std::int32_t stride() const { return stride_; }

  double l[6] = {};  // l00; l10, l11; l20, l21, l22

 private:
  const NormalMatrix& normal_;
  const double* rows_ = nullptr;
  std::int32_t stride_ = 0;
};

// Copies N_rr into the lower triangle of the reduced matrix.
void NormalMatrix::load(ReducedMatrix& reduced) const {
  reduced.tiles.zero();
  for (std::size_t a = 0; a < pairs_.size(); ++a) {
    const auto block = static_cast<std::int32_t>(a);
    for (const BlockPair& pair : pairs_[a]) {
      const double* value = pair_values_.data() + pair.offset;
      for (std::int32_t r = 0; r < block_width(block); ++r) {
        for (std::int32_t c = 0; c < block_width(pair.other); ++c, ++value) {
          const std::int32_t row = reduced.start(block) + r;
          const std::int32_t column = reduced.start(pair.other) + c;
          // Within a diagonal block only the upper triangle counts.
          if (pair.other == block && c < r) continue;
          reduced.tiles.element(std::max(row, column), std::min(row, column)) = *value;
        }
      }
    }
  }
}

// Forms and factorises the reduced matrix. The points' part of the factor's diagonal is stored. 0,
// or k for a failing pivot: of a point's unknown k, or of row k - (number of the points' unknowns).
std::int32_t NormalMatrix::reduce(ReducedMatrix& reduced, double* diagonal_of_factor) const {
  load(reduced);
  const Kernels& kernel = kernels();
  Elimination point(*this);
  std::vector<double> v;
  std::vector<TilePiece> pieces;
  for (std::int32_t p = 0; p < num_points_; ++p) {
    if (const std::int32_t failed = point.factorise(p); failed != 0) return 3 * p + failed;
    if (diagonal_of_factor != nullptr) {
      diagonal_of_factor[3 * p] = point.l[0];
      diagonal_of_factor[3 * p + 1] = point.l[2];
      diagonal_of_factor[3 * p + 2] = point.l[5];
    }
    point.form_v(v);
    pieces.clear();
    const PointEntry& entry = points_[place(p)];
    for (std::int32_t k = 0; k < entry.num_blocks; ++k) {
      const PointBlock& at = point_blocks_[entry.first_block + place(k)];
      for (TilePiece piece : reduced.pieces_of(at.block)) {
        piece.column += at.column;
        pieces.push_back(piece);
      }
    }
    if (!reduced.is_natural()) {
      std::sort(pieces.begin(), pieces.end(), [](const TilePiece& x, const TilePiece& y) {
        return x.tile != y.tile ? x.tile < y.tile : x.offset < y.offset;
      });
    }
    kernel.subtract_outer(reduced.tiles.tiles(), reduced.tiles.num_tiles(),
                          reduced.tiles.tile_size(), pieces.data(),
                          static_cast<std::int32_t>(pieces.size()), v.data(), point.stride());
  }
  const std::int32_t failed = reduced.tiles.factorise();
  return failed == 0 ? 0 : num_point_unknowns() + failed;
}

std::int32_t NormalMatrix::factorise(Vector& p) {
  p.resize(size_);
  natural_.reset();
  const std::int32_t failed = reduce(reduced_, p.data());
  factorised_ = failed == 0;
  if (failed > num_point_unknowns()) return failing_unknown(failed - num_point_unknowns() - 1) + 1;
  if (failed != 0) return failed;
  for (std::int32_t b = 0; b < structure_.num_blocks(); ++b) {
    for (std::int32_t c = 0; c < block_width(b); ++c) {
      const std::int32_t row = reduced_.start(b) + c;
      p[block_index(b) + c] = reduced_.tiles.at(row, row);
    }
  }
  return 0;
}

// The unknown at which the factorisation in the order of the unknowns fails, when that of the
// reduced matrix fails at a row.
std::int32_t NormalMatrix::failing_unknown(std::int32_t row) const {
  if (!reduced_.is_natural()) {
    ReducedMatrix natural;
    if (natural.set_structure(structure_, structure_.point_blocks(), true)) {
      const std::int32_t failed = reduce(natural, nullptr);
      if (failed != 0) return failed - 1;
    }
    // Rounding decides: in the order of the unknowns all pivots are positive.
  }
  const std::int32_t block = reduced_.block_at(row);
  return block_index(block) + row - reduced_.start(block);
}

const ReducedMatrix& NormalMatrix::natural_factor() const {
  if (reduced_.is_natural()) return reduced_;
  if (!natural_) {
    natural_ = std::make_unique<ReducedMatrix>();
    if (!natural_->set_structure(structure_, structure_.point_blocks(), true)) {
      throw std::bad_alloc();
    }
    reduce(*natural_, nullptr);
  }
  return *natural_;
}

// Element (i, j), i > j, of L in the order of the unknowns.
double NormalMatrix::factor_at(std::int32_t i, std::int32_t j) const {
  const std::int32_t reduced = num_point_unknowns();
  if (j >= reduced) {
    return natural_factor().tiles.at(i - reduced, j - reduced);
  }
  Elimination point(*this);
  point.factorise(j / 3);
  if (i < reduced) {
    if (i / 3 != j / 3) return 0.0;
    return point.l[i % 3 == 1 ? 1 : 3 + j % 3];
  }
  const PointBlock* const found = find_point_block(j / 3, block_of(i));
  if (found == nullptr) return 0.0;
  const double* const rows = point.rows() + found->column + (i - block_index(found->block));
  double x[3] = {rows[0], rows[point.stride()], rows[2 * point.stride()]};
  point.forward(x[0], x[1], x[2]);
  return x[j % 3];
}

void NormalMatrix::solve_point(std::int32_t point, double (&s)[3]) const {
  Elimination elimination(*this);
  elimination.factorise(point);
  elimination.forward(s[0], s[1], s[2]);
  elimination.backward(s[0], s[1], s[2]);
}

int NormalMatrix::substitute(const Vector& p, const Vector& b, Vector& x) const {
  if (p.size() != size_) return -2;
  if (b.size() != size_) return -3;
  x.resize(size_);
  const Kernels& kernel = kernels();
  const std::int32_t reduced_size = size_ - num_point_unknowns();
  // Right-hand side of the reduced system, b_r - N_pr' N_pp^-1 b_p, in the order of the unknowns.
  Vector reduced_rhs(reduced_size);
  std::copy_n(b.data() + num_point_unknowns(), reduced_size, reduced_rhs.data());
  Elimination point(*this);
  for (std::int32_t i = 0; i < num_points_; ++i) {
    point.factorise(i);
    double y[3] = {b[3 * i], b[3 * i + 1], b[3 * i + 2]};
    point.forward(y[0], y[1], y[2]);
    std::copy_n(y, 3, x.data() + 3 * i);
    point.backward(y[0], y[1], y[2]);
    const PointEntry& entry = points_[place(i)];
    for (std::int32_t k = 0; k < entry.num_blocks; ++k) {
      const PointBlock& at = point_blocks_[entry.first_block + place(k)];
      double* const target = reduced_rhs.data() + block_index(at.block) - num_point_unknowns();
      const double* const rows = point.rows() + at.column;
      for (std::int32_t r = 0; r < 3; ++r) {
        kernel.add_scaled(target, rows + r * point.stride(), -y[r], block_width(at.block));
      }
    }
  }
  // The reduced system, in the order of its matrix.
  std::vector<double> solution(place(reduced_.tiles.num_tiles() * reduced_.tiles.tile_size()), 0.0);
  for (std::int32_t k = 0; k < structure_.num_blocks(); ++k) {
    std::copy_n(reduced_rhs.data() + block_index(k) - num_point_unknowns(), block_width(k),
                solution.data() + reduced_.start(k));
  }
  reduced_.tiles.solve_lower(solution.data());
  reduced_.tiles.solve_upper(solution.data());
  for (std::int32_t k = 0; k < structure_.num_blocks(); ++k) {
    std::copy_n(solution.data() + reduced_.start(k), block_width(k), x.data() + block_index(k));
  }
  // Back to the points: x_p = L^-T (y - L^-1 N_pr x_r).
  for (std::int32_t i = 0; i < num_points_; ++i) {
    point.factorise(i);
    double s[3] = {0.0, 0.0, 0.0};
    const PointEntry& entry = points_[place(i)];
    for (std::int32_t k = 0; k < entry.num_blocks; ++k) {
      const PointBlock& at = point_blocks_[entry.first_block + place(k)];
      const double* const rows = point.rows() + at.column;
      for (std::int32_t r = 0; r < 3; ++r) {
        s[r] += kernel.dot(rows + r * point.stride(), x.data() + block_index(at.block),
                           block_width(at.block));
      }
    }
    point.forward(s[0], s[1], s[2]);
    for (std::int32_t r = 0; r < 3; ++r) s[r] = x[3 * i + r] - s[r];
    point.backward(s[0], s[1], s[2]);
    std::copy_n(s, 3, x.data() + 3 * i);
  }
  return 0;
}

}  // namespace vorn
