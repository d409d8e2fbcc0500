#include "lsq/normal/point_batch.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace vorn {
namespace {

// Room that the columns of one point take in a piece: 3 x 8.
constexpr std::size_t kColumns = 3 * static_cast<std::size_t>(kPieceWidth);

std::size_t place(std::int32_t i) { return static_cast<std::size_t>(i); }

std::size_t size_of_next(std::span<const std::int32_t> points) {
  return std::min(points.size(), place(kBatchPoints));
}

}  // namespace

PointBatch::PointBatch(const NormalMatrix& normal, const ReducedMatrix& reduced)
    : normal_(normal), reduced_(reduced), starts_(reduced.pieces().size(), 0) {
  std::vector<std::uint64_t> bits_of(reduced.pieces().size(), 0);
  std::span<const std::int32_t> points = normal.point_order();
  for (; !points.empty(); points = points.subspan(size_of_next(points))) {
    list_pieces(points.first(size_of_next(points)), bits_of);
  }
  met_.shrink_to_fit();
}

// Lists the pieces that the points of a batch meet, ascending. `bits_of` all pieces is zero before
// and after.
void PointBatch::list_pieces(std::span<const std::int32_t> points,
                             std::vector<std::uint64_t>& bits_of) {
  const std::size_t first = met_.size();
  for (std::size_t k = 0; k < points.size(); ++k) {
    for (const NormalMatrix::PointBlock& at : normal_.blocks_of(points[k])) {
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

// Goes to the batch that follows; returns its points.
std::span<const std::int32_t> PointBatch::advance(std::size_t batch) {
  const std::span<const std::int32_t> rest = normal_.point_order().subspan(start_.point);
  const std::span<const std::int32_t> points = rest.first(size_of_next(rest));
  running_ = std::span(met_).subspan(start_.met, num_met_[batch]);
  start_.point += points.size();
  start_.met += running_.size();
  return points;
}

bool PointBatch::eliminate_all(double* diagonal, const ForwardPass* forward) {
  start_.clear();
  for (std::size_t batch = 0; batch < num_met_.size(); ++batch) {
    if (!line_up_next(advance(batch), diagonal, forward)) return false;
    kernel_.subtract_batch(reduced_.tiles.tiles(), reduced_.tiles.num_tiles(),
                           reduced_.tiles.tile_size(), pieces_.data(),
                           static_cast<std::int32_t>(pieces_.size()));
  }
  return true;
}

// The columns of all points of the running batch.
bool PointBatch::line_up_next(std::span<const std::int32_t> points, double* diagonal,
                              const ForwardPass* forward) {
  make_room();
  for (const std::int32_t point : points) {
    if (factor_.factorise(normal_.diagonal(point)) != 0) return false;
    if (diagonal != nullptr) {
      diagonal[place(3 * point)] = factor_.l00();
      diagonal[place(3 * point + 1)] = factor_.l11();
      diagonal[place(3 * point + 2)] = factor_.l22();
    }
    line_up(point, forward);
  }
  return true;
}

// Makes room for the columns of the pieces.
void PointBatch::make_room() {
  pieces_.clear();
  std::size_t count = 0;
  for (const Met& one : running_) {
    const TilePiece& at = reduced_.pieces()[place(one.piece)];
    pieces_.push_back({one.points, nullptr, at.tile, at.offset, at.width});
    starts_[place(one.piece)] = count;
    count += kColumns * place(std::popcount(one.points));
  }
  if (count > columns_.size()) columns_.resize(count);
  for (std::size_t k = 0; k < pieces_.size(); ++k) {
    pieces_[k].v = columns_.data() + starts_[place(running_[k].piece)];
  }
}

// Puts the columns of the point that has just been factorised where its pieces have their room; the
// points come in the order of their bits. V = L^-1 N_pr, y = L^-1 b_p, b_r -= V'y.
void PointBatch::line_up(std::int32_t point, const ForwardPass* forward) {
  double y[3] = {0.0, 0.0, 0.0};
  if (forward != nullptr) {
    std::copy_n(forward->b + place(3 * point), 3, y);
    factor_.forward(y);
    std::copy_n(y, 3, forward->y + place(3 * point));
  }
  for (const NormalMatrix::PointBlock& at : normal_.blocks_of(point)) {
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

// ---- the way back ------------------------------------------------------------------------------

// U = V Z of the batch that follows; returns its points.
std::span<const std::int32_t> PointBatch::multiply_next(const TileMatrix& z, std::size_t batch) {
  const std::span<const std::int32_t> points = advance(batch);
  (void)line_up_next(points, nullptr, nullptr);  // the pivots passed when N was factorised
  products_.assign(columns_.size(), 0.0);
  for (BatchPiece& piece : pieces_) piece.u = products_.data() + (piece.v - columns_.data());
  kernel_.multiply_batch(z.tiles(), z.num_tiles(), z.tile_size(), pieces_.data(),
                         static_cast<std::int32_t>(pieces_.size()));
  // The points are taken out in the order in which they were lined up.
  for (std::size_t k = 0; k < pieces_.size(); ++k) {
    starts_[place(running_[k].piece)] = static_cast<std::size_t>(pieces_[k].v - columns_.data());
  }
  return points;
}

PointBatch::Product PointBatch::take_out(std::int32_t point) {
  (void)factor_.factorise(normal_.diagonal(point));  // as above
  const std::size_t width = place(normal_.coupled_width(point));
  taken_out_.resize(std::max(taken_out_.size(), 6 * width));
  double* const v = taken_out_.data();
  double* const u = v + 3 * width;
  for (const NormalMatrix::PointBlock& at : normal_.blocks_of(point)) {
    const std::int32_t first = reduced_.first_piece(at.block);
    for (std::int32_t piece = first; piece < first + reduced_.num_pieces(at.block); ++piece) {
      const TilePiece& of = reduced_.pieces()[place(piece)];
      const std::size_t from =
          std::exchange(starts_[place(piece)], starts_[place(piece)] + kColumns);
      const std::size_t to = place(at.start / 3 + of.column);
      for (std::size_t r = 0; r < 3; ++r) {
        const std::size_t row = from + r * place(kPieceWidth);
        std::copy_n(columns_.data() + row, of.width, v + r * width + to);
        std::copy_n(products_.data() + row, of.width, u + r * width + to);
      }
    }
  }
  return {point, factor_, v, u};
}

}  // namespace vorn
