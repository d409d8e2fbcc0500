// Factorisation and substitution: the elimination of the object points in batches, the
// factorisation of the reduced matrix, and the way back.

#include <algorithm>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "lsq/linalg/cholesky.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_factor.h"

namespace vorn {

// Up to 64 consecutive points on their way into the reduced matrix. Their coupling blocks, divided
// by the factors of their diagonal blocks, are lined up by the pieces of the reduced matrix that
// they meet, so that every pair of pieces is met once with all points that it has in common.
class NormalMatrix::PointBatch {
 public:
  PointBatch(const NormalMatrix& normal, const ReducedMatrix& reduced)
      : normal_(normal), reduced_(reduced), starts_(reduced.pieces().size(), 0) {
    std::vector<std::uint64_t> bits_of(reduced.pieces().size(), 0);
    std::span<const std::int32_t> points = normal.point_order();
    for (; !points.empty(); points = points.subspan(size_of_next(points))) {
      list_pieces(points.first(size_of_next(points)), bits_of);
    }
    met_.shrink_to_fit();
  }

  // Eliminates all points from the reduced matrix. False when a pivot is not greater than 0.
  bool eliminate_all(double* diagonal_of_factor, const Forward* forward) {
    std::span<const std::int32_t> points = normal_.point_order();
    std::span<const Met> met = met_;
    for (const std::size_t num_met : num_met_) {
      const std::size_t count = size_of_next(points);
      if (!eliminate(points.first(count), met.first(num_met), diagonal_of_factor, forward)) {
        return false;
      }
      points = points.subspan(count);
      met = met.subspan(num_met);
    }
    return true;
  }

 private:
  static constexpr std::size_t kColumns = 3 * static_cast<std::size_t>(kPieceWidth);

  // A piece that a batch meets, and the points that meet it.
  struct Met {
    std::uint64_t points;
    std::int32_t piece;
  };

  static std::size_t size_of_next(std::span<const std::int32_t> points) {
    return std::min(points.size(), place(kBatchPoints));
  }

  bool eliminate(std::span<const std::int32_t> points, std::span<const Met> met,
                 double* diagonal_of_factor, const Forward* forward) {
    make_room(met);
    for (const std::int32_t point : points) {
      if (factor_.factorise(normal_.diagonal(point)) != 0) return false;
      if (diagonal_of_factor != nullptr) {
        diagonal_of_factor[place(3 * point)] = factor_.l00();
        diagonal_of_factor[place(3 * point + 1)] = factor_.l11();
        diagonal_of_factor[place(3 * point + 2)] = factor_.l22();
      }
      line_up(point, forward);
    }
    kernel_.subtract_batch(reduced_.tiles.tiles(), reduced_.tiles.num_tiles(),
                           reduced_.tiles.tile_size(), pieces_.data(),
                           static_cast<std::int32_t>(pieces_.size()));
    return true;
  }

  // Lists the pieces that the points of a batch meet, ascending. `bits_of` all pieces is zero
  // before and after.
  void list_pieces(std::span<const std::int32_t> points, std::vector<std::uint64_t>& bits_of) {
    const std::size_t first = met_.size();
    for (std::size_t k = 0; k < points.size(); ++k) {
      for (const PointBlock& at : normal_.blocks_of(points[k])) {
        const std::int32_t begin = reduced_.first_piece(at.block);
        for (std::int32_t piece = begin; piece < begin + reduced_.num_pieces(at.block); ++piece) {
          std::uint64_t& bits = bits_of[place(piece)];
          if (bits == 0) met_.push_back({0, piece});
          bits |= std::uint64_t{1} << k;
        }
      }
    }
    const std::span<Met> met = std::span(met_).subspan(first);
    std::sort(met.begin(), met.end(), [](const Met& a, const Met& b) { return a.piece < b.piece; });
    for (Met& one : met) one.points = std::exchange(bits_of[place(one.piece)], 0);
    num_met_.push_back(met.size());
  }

  // Makes room for the columns of the pieces.
  void make_room(std::span<const Met> met) {
    pieces_.clear();
    std::size_t count = 0;
    for (const Met& one : met) {
      const TilePiece& at = reduced_.pieces()[place(one.piece)];
      pieces_.push_back({one.points, nullptr, at.tile, at.offset, at.width});
      starts_[place(one.piece)] = count;
      count += kColumns * static_cast<std::size_t>(__builtin_popcountll(one.points));
    }
    if (count > columns_.size()) columns_.resize(count);
    for (std::size_t k = 0; k < pieces_.size(); ++k) {
      pieces_[k].v = columns_.data() + starts_[place(met[k].piece)];
    }
  }

  // Puts the columns of the point that has just been factorised where its pieces have their room;
  // the points come in the order of their bits.
  void line_up(std::int32_t point, const Forward* forward) {
    double y[3] = {0.0, 0.0, 0.0};
    if (forward != nullptr) {
      std::copy_n(forward->b + place(3 * point), 3, y);
      factor_.forward(y);
      std::copy_n(y, 3, forward->y + place(3 * point));
    }
    for (const PointBlock& at : normal_.blocks_of(point)) {
      const double* const n = normal_.coupling(point, at);
      const std::int32_t stride = normal_.block_width(at.block);
      const std::int32_t first = reduced_.first_piece(at.block);
      for (std::int32_t piece = first; piece < first + reduced_.num_pieces(at.block); ++piece) {
        const TilePiece& of = reduced_.pieces()[place(piece)];
        double* const v = columns_.data() + starts_[place(piece)];
        starts_[place(piece)] += kColumns;
        double* const rhs =
            forward == nullptr
                ? nullptr
                : forward->reduced + place(of.tile * reduced_.tiles.tile_size() + of.offset);
        kernel_.divide_piece(factor_.packed(), n + of.column, stride, of.width, v, y, rhs);
      }
    }
  }

  const Kernels& kernel_ = kernels();
  const NormalMatrix& normal_;
  const ReducedMatrix& reduced_;
  PointFactor factor_;
  std::vector<Met> met_;  // by all batches
  std::vector<std::size_t> num_met_;
  std::vector<std::size_t> starts_;  // of all pieces: where the next point's columns go
  std::vector<BatchPiece> pieces_;   // of the running batch
  std::vector<double> columns_;
};

NormalMatrix::NormalMatrix() = default;
NormalMatrix::~NormalMatrix() = default;

void NormalMatrix::release_batch() { batch_.reset(); }

NormalMatrix::PointBatch& NormalMatrix::batch() {
  if (!batch_) batch_ = std::make_unique<PointBatch>(*this, reduced_);
  return *batch_;
}

// Copies N_rr into the lower triangle of the reduced matrix.
void NormalMatrix::load(ReducedMatrix& reduced) const {
  reduced.tiles.zero();
  for (std::size_t a = 0; a < pairs_.size(); ++a) {
    const auto block = static_cast<std::int32_t>(a);
    for (const BlockPair& pair : pairs_[a]) {
      const double* value = pair_values_.data() + pair.offset;
      for (std::int32_t r = 0; r < block_width(block); ++r) {
        for (std::int32_t c = 0; c < block_width(pair.other); ++c, ++value) {
          // Within a diagonal block only the upper triangle counts.
          if (pair.other == block && c < r) continue;
          const std::int32_t row = reduced.start(block) + r;
          const std::int32_t column = reduced.start(pair.other) + c;
          reduced.tiles.element(std::max(row, column), std::min(row, column)) = *value;
        }
      }
    }
  }
}

// Forms and factorises the reduced matrix. The points' part of the factor's diagonal is stored. 0,
// or k for a failing pivot: of a point's unknown k, or of row k - (number of the points' unknowns).
std::int32_t NormalMatrix::reduce(PointBatch& batch, ReducedMatrix& reduced,
                                  double* diagonal_of_factor, const Forward* forward) const {
  load(reduced);
  if (!batch.eliminate_all(diagonal_of_factor, forward)) return first_failing_pivot();
  const std::int32_t failed = reduced.tiles.factorise();
  return failed == 0 ? 0 : num_point_unknowns() + failed;
}

// The first failing pivot of the points' diagonal blocks, counted from 1.
std::int32_t NormalMatrix::first_failing_pivot() const {
  PointFactor factor;
  for (std::int32_t p = 0; p < num_points_; ++p) {
    if (const std::int32_t failed = factor.factorise(diagonal(p)); failed != 0) {
      return 3 * p + failed;
    }
  }
  return 0;
}

void NormalMatrix::fill_dense() {
  dense_.zero();
  for (std::int32_t point = 0; point < num_points_; ++point) {
    const double* element = diagonal(point);
    for (std::int32_t r = 0; r < 3; ++r) {
      double* const row = dense_[3 * point + r];
      for (std::int32_t c = r; c < 3; ++c) row[3 * point + c] = *element++;
      for (const PointBlock& at : blocks_of(point)) {
        const std::int32_t width = block_width(at.block);
        std::copy_n(coupling(point, at) + place(r * width), width, row + block_index(at.block));
      }
    }
  }
  for (std::size_t a = 0; a < pairs_.size(); ++a) {
    for (const BlockPair& pair : pairs_[a]) {
      const std::int32_t width = block_width(pair.other);
      for (std::int32_t r = 0; r < blocks_[a].width; ++r) {
        std::copy_n(pair_values_.data() + pair.offset + place(r) * place(width), width,
                    dense_[blocks_[a].index + r] + block_index(pair.other));
      }
    }
  }
}

std::int32_t NormalMatrix::factorise(Vector& p) {
  if (method_ == Method::dense) {
    fill_dense();
    const int failed = cholesky(dense_, p);
    factorised_ = failed == 0;
    return failed;
  }
  p.resize(size_);
  return finish_factorisation(reduce(batch(), reduced_, p.data(), nullptr), p);
}

// Completes the diagonal of the factor; turns the code of `reduce` into that of `factorise`.
std::int32_t NormalMatrix::finish_factorisation(std::int32_t failed, Vector& p) {
  natural_.reset();
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
    if (natural.set_structure(structure_, point_blocks(), true)) {
      PointBatch natural_batch(*this, natural);
      const std::int32_t failed = reduce(natural_batch, natural, nullptr, nullptr);
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
    if (!natural_->set_structure(structure_, point_blocks(), true)) {
      throw std::bad_alloc();
    }
    PointBatch natural_batch(*this, *natural_);
    reduce(natural_batch, *natural_, nullptr, nullptr);
  }
  return *natural_;
}

// Element (i, j), i > j, of L in the order of the unknowns.
double NormalMatrix::factor_at(std::int32_t i, std::int32_t j) const {
  if (method_ == Method::dense) return dense_[i][j];
  const std::int32_t reduced = num_point_unknowns();
  if (j >= reduced) return natural_factor().tiles.at(i - reduced, j - reduced);
  PointFactor factor;
  factor.factorise(diagonal(j / 3));
  if (i < reduced) {
    if (i / 3 != j / 3) return 0.0;
    if (i % 3 == 1) return factor.l10();
    return j % 3 == 0 ? factor.l20() : factor.l21();
  }
  const PointBlock* const found = find_point_block(j / 3, block_of(i));
  if (found == nullptr) return 0.0;
  const double* const column = coupling(j / 3, *found) + (i - block_index(found->block));
  const std::ptrdiff_t width = block_width(found->block);
  double x[3] = {column[0], column[width], column[2 * width]};
  factor.forward(x);
  return x[j % 3];
}

// The right-hand side of the reduced part, in the order of its matrix.
std::vector<double> NormalMatrix::reduced_rhs(const Vector& b) const {
  const TileMatrix& tiles = reduced_.tiles;
  std::vector<double> rhs(place(tiles.num_tiles() * tiles.tile_size() + kPieceWidth), 0.0);
  for (std::int32_t k = 0; k < structure_.num_blocks(); ++k) {
    std::copy_n(b.data() + block_index(k), block_width(k), rhs.data() + reduced_.start(k));
  }
  return rhs;
}

std::int32_t NormalMatrix::solve(const Vector& b, Vector& x, Vector& p) {
  if (b.size() != size_) return -3;
  if (method_ == Method::dense) {
    const std::int32_t failed = factorise(p);
    return failed == 0 ? substitute(p, b, x) : failed;
  }
  p.resize(size_);
  x.resize(size_);
  std::vector<double> rhs = reduced_rhs(b);
  const Forward forward{b.data(), x.data(), rhs.data()};
  const std::int32_t failed =
      finish_factorisation(reduce(batch(), reduced_, p.data(), &forward), p);
  if (failed == 0) substitute_back(rhs, x);
  return failed;
}

int NormalMatrix::substitute(const Vector& p, const Vector& b, Vector& x) const {
  if (p.size() != size_) return -2;
  if (b.size() != size_) return -3;
  if (method_ == Method::dense) return back_substitution(dense_, p, b, x);
  x.resize(size_);
  std::vector<double> rhs = reduced_rhs(b);
  PointFactor factor;
  for (const std::int32_t i : point_order_) {
    factor.factorise(diagonal(i));
    double y[3] = {b[3 * i], b[3 * i + 1], b[3 * i + 2]};
    factor.forward(y);
    std::copy_n(y, 3, x.data() + place(3 * i));
    factor.backward(y);
    for (const PointBlock& at : blocks_of(i)) {
      double* const target = rhs.data() + reduced_.start(at.block);
      const double* const n = coupling(i, at);
      const std::ptrdiff_t width = block_width(at.block);
      for (std::ptrdiff_t c = 0; c < width; ++c) {
        target[c] -= n[c] * y[0] + n[width + c] * y[1] + n[2 * width + c] * y[2];
      }
    }
  }
  substitute_back(rhs, x);
  return 0;
}

// Solves the reduced system, and from it the points: x_p = L^-T (y - L^-1 N_pr x_r), with y in the
// place of x_p.
void NormalMatrix::substitute_back(std::vector<double>& reduced, Vector& x) const {
  reduced_.tiles.solve_lower(reduced.data());
  reduced_.tiles.solve_upper(reduced.data());
  for (std::int32_t k = 0; k < structure_.num_blocks(); ++k) {
    std::copy_n(reduced.data() + reduced_.start(k), block_width(k), x.data() + block_index(k));
  }
  const Kernels& kernel = kernels();
  std::vector<BlockProduct> products;
  PointFactor factor;
  for (std::size_t k = 0; k < point_order_.size(); ++k) {
    fetch_point(k + 2);
    const std::int32_t i = point_order_[k];
    factor.factorise(diagonal(i));
    products.clear();
    for (const PointBlock& at : blocks_of(i)) {
      const Block& block = blocks_[place(at.block)];
      products.push_back({coupling(i, at), x.data() + block.index, block.width});
    }
    double s[3];
    kernel.multiply_blocks(s, products.data(), static_cast<std::int64_t>(products.size()));
    factor.forward(s);
    for (std::int32_t r = 0; r < 3; ++r) s[r] = x[3 * i + r] - s[r];
    factor.backward(s);
    std::copy_n(s, 3, x.data() + place(3 * i));
  }
}

}  // namespace vorn
