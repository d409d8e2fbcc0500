#include "lsq/normal/point_batch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "base/place.h"
#include "base/workers.h"

namespace vorn {
namespace {

// What the columns of the batches at work may take per worker [doubles]: a part of the cache.
constexpr std::size_t kRoomPerWorker = std::size_t{1} << 18U;

std::size_t size_of_next(std::span<const std::int32_t> points) {
  return std::min(points.size(), place(kBatchPoints));
}

// Row and column of a place in a lower triangle, counted row by row.
std::pair<std::size_t, std::size_t> pair_of(std::size_t k) {
  auto row = static_cast<std::size_t>((std::sqrt(8.0 * static_cast<double>(k) + 1.0) - 1.0) / 2.0);
  // The root may be rounded either way.
  while (row * (row + 1) / 2 > k) --row;
  while ((row + 1) * (row + 2) / 2 <= k) ++row;
  return {row, k - row * (row + 1) / 2};
}

}  // namespace

PointBatch::PointBatch(const NormalMatrix& normal, const ReducedMatrix& reduced)
    : normal_(normal), reduced_(reduced), batches_(1) {
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
  const std::span<MetPiece> met = std::span(met_).subspan(first);
  std::sort(met.begin(), met.end(),
            [](const MetPiece& a, const MetPiece& b) { return a.piece < b.piece; });
  for (MetPiece& one : met) one.points = std::exchange(bits_of[place(one.piece)], 0);
  num_met_.push_back(met.size());
}

PointBatch::LiningUp PointBatch::lining_up() const {
  return {std::vector<std::int32_t>(reduced_.pieces().size()), normal_.couplings()};
}

// Points and pieces of a batch; returns where the one that follows starts.
PointBatch::Start PointBatch::take(const Start& start, std::size_t number, Batch& batch) const {
  batch.number = number;
  const std::span<const std::int32_t> rest = normal_.point_order().subspan(start.point);
  batch.points = rest.first(size_of_next(rest));
  batch.met = std::span(met_).subspan(start.met, num_met_[number]);
  return {start.point + batch.points.size(), start.met + batch.met.size()};
}

// ---- elimination -------------------------------------------------------------------------------

template <class Take>
bool PointBatch::line_up_each(double* diagonal, const ForwardPass* forward, Take take) {
  start_.clear();
  lining_up_.clear();
  while (lining_up_.size() < workers().count()) lining_up_.push_back(lining_up());
  for (std::size_t next = 0; next < num_met_.size();) {
    const std::size_t count = take_batches(next);
    const std::span<Batch> batches = std::span(batches_).first(count);
    next += count;
    workers().run(count, [&](std::size_t k, std::size_t worker) {
      batches[k].positive = line_up_all(batches[k], lining_up_[worker], diagonal, forward);
    });
    if (!std::all_of(batches.begin(), batches.end(), [](const Batch& b) { return b.positive; })) {
      return false;
    }
    take(batches);
  }
  return true;
}

bool PointBatch::eliminate_all(double* diagonal, const ForwardPass* forward) {
  return line_up_each(diagonal, forward, [&](std::span<Batch> batches) {
    find_tile_rows(batches);
    // The right-hand side first, then the tiles.
    const std::size_t first = forward == nullptr ? 0 : 1;
    const std::size_t num_tiles = tile_rows_.size() * (tile_rows_.size() + 1) / 2;
    workers().run(first + num_tiles, [&](std::size_t k, std::size_t) {
      if (k < first) return subtract_rhs(batches, forward->reduced);
      const auto [row, column] = pair_of(k - first);
      subtract(batches, row, column);
    });
  });
}

void PointBatch::reduce_rhs(const ForwardPass& forward) {
  (void)line_up_each(nullptr, &forward, [&](std::span<const Batch> batches) {
    subtract_rhs(batches, forward.reduced);
  });
}

// Takes the batches that follow, as many as are worked at together; returns their number.
std::size_t PointBatch::take_batches(std::size_t first) {
  const std::size_t num_workers = workers().count();
  const std::size_t room = num_workers == 1 ? 0 : num_workers * kRoomPerWorker;
  std::size_t count = 0;
  std::size_t taken = 0;
  do {
    if (count == batches_.size()) batches_.emplace_back();
    Batch& batch = batches_[count];
    start_ = take(start_, first + count++, batch);
    for (const MetPiece& one : batch.met) {
      taken += place(kPointColumns * std::popcount(one.points));
    }
  } while (taken < room && first + count < num_met_.size());
  return count;
}

// The columns of all points of a batch. False when a pivot is not greater than 0.
bool PointBatch::line_up_all(Batch& batch, LiningUp& with, double* diagonal,
                             const ForwardPass* forward) const {
  batch.columns.set_pieces(reduced_, batch.met, with.places);
  // Points lie far apart: they are asked for before they are needed.
  for (const std::int32_t point : batch.points) {
    if (diagonal != nullptr) __builtin_prefetch(diagonal + place(3 * point), 1);
    if (forward == nullptr) continue;
    __builtin_prefetch(forward->b + place(3 * point));
    __builtin_prefetch(forward->y + place(3 * point), 1);
  }
  PointFactor factor;
  for (std::size_t k = 0; k < batch.points.size(); ++k) {
    const std::size_t at = place(3 * batch.points[k]);
    if (factor.factorise(normal_.diagonal_at(batch.number * place(kBatchPoints) + k)) != 0) {
      return false;
    }
    batch.columns.set_factor(k, factor);
    if (diagonal != nullptr) {
      diagonal[at] = factor.l00();
      diagonal[at + 1] = factor.l11();
      diagonal[at + 2] = factor.l22();
    }
    if (forward == nullptr) continue;
    double y[3] = {forward->b[at], forward->b[at + 1], forward->b[at + 2]};
    factor.forward(y);
    for (std::size_t i = 0; i < 3; ++i) batch.y[k][i] = forward->y[at + i] = y[i];
  }
  with.couplings.add_columns(batch.number, batch.columns);
  return true;
}

// Finds the tile rows that the batches meet, and where each batch has its pieces of them.
void PointBatch::find_tile_rows(std::span<Batch> batches) {
  tile_rows_.clear();
  for (const Batch& batch : batches) {
    for (const BatchPiece& piece : batch.columns.pieces()) tile_rows_.push_back(piece.tile);
  }
  std::sort(tile_rows_.begin(), tile_rows_.end());
  tile_rows_.erase(std::unique(tile_rows_.begin(), tile_rows_.end()), tile_rows_.end());
  for (Batch& batch : batches) {
    batch.in_tile_row.assign(tile_rows_.size(), {});
    const BatchPiece* piece = batch.columns.pieces().data();
    const BatchPiece* const end = piece + batch.columns.pieces().size();
    for (std::size_t row = 0; row < tile_rows_.size(); ++row) {
      TilePieces& in_row = batch.in_tile_row[row];
      in_row.begin = piece;
      while (piece != end && piece->tile == tile_rows_[row]) ++piece;
      in_row.end = piece;
    }
  }
}

// S -= V'V in the tile where two of the tile rows meet.
void PointBatch::subtract(std::span<const Batch> batches, std::size_t row,
                          std::size_t column) const {
  double* const tile = reduced_.tiles.tile(tile_rows_[row], tile_rows_[column]);
  // Pieces without a common point may meet where there is no tile.
  if (tile == nullptr) return;
  for (const Batch& batch : batches) {
    kernel_.subtract_pairs(tile, reduced_.tiles.tile_size(), batch.in_tile_row[row],
                           batch.in_tile_row[column]);
  }
}

// b_r -= V'y.
void PointBatch::subtract_rhs(std::span<const Batch> batches, double* rhs) const {
  const std::int32_t size = reduced_.tiles.tile_size();
  for (const Batch& batch : batches) {
    for (const BatchPiece& piece : batch.columns.pieces()) {
      kernel_.subtract_rhs(rhs + place(piece.tile * size + piece.offset), piece, batch.y[0]);
    }
  }
}

// ---- the way back ------------------------------------------------------------------------------

std::vector<PointBatch::Start> PointBatch::starts_of_batches() const {
  std::vector<Start> starts;
  Batch batch;
  Start next;
  for (std::size_t number = 0; number < num_met_.size(); ++number) {
    starts.push_back(next);
    next = take(next, number, batch);
  }
  return starts;
}

// U = V Z of a batch.
void PointBatch::multiply(const TileMatrix& z, const Start& start, std::size_t number,
                          WayBack& way) const {
  Batch& batch = way.batch;
  (void)take(start, number, batch);
  (void)line_up_all(batch, way.with, nullptr, nullptr);  // passed when N was factorised
  const double* const v = batch.columns.values().data();
  std::vector<BatchPiece>& pieces = batch.columns.pieces();
  way.products.assign(batch.columns.values().size(), 0.0);
  for (BatchPiece& piece : pieces) piece.u = way.products.data() + (piece.v - v);
  kernel_.multiply_batch(z.tiles(), z.num_tiles(), z.tile_size(), pieces.data(),
                         static_cast<std::int32_t>(pieces.size()));
  list_products(number, way);
}

// Where V and U of each point stand.
void PointBatch::list_products(std::size_t number, WayBack& way) const {
  const Batch& batch = way.batch;
  // Room for all first: what points to the pieces stays valid.
  std::size_t count = 0;
  for (const MetPiece& one : batch.met) count += place(std::popcount(one.points));
  way.pieces.resize(count);
  way.points.resize(batch.points.size());
  PieceProduct* next = way.pieces.data();
  for (std::size_t k = 0; k < batch.points.size(); ++k) {
    const std::size_t rank = number * place(kBatchPoints) + k;
    PieceProduct* const first = next;
    for (const NormalMatrix::PointBlock& at : normal_.blocks_at(rank)) {
      batch.columns.for_each_piece(at.block, [&](const TilePiece& piece, const BatchPiece& from) {
        const std::size_t offset = BatchColumns::offset(from, k);
        *next++ = {from.v + offset, from.u + offset, piece.width, at.start + piece.column,
                   normal_.block_width(at.block)};
      });
    }
    way.points[k].pieces = {first, next};
    (void)way.points[k].factor.factorise(normal_.diagonal_at(rank));  // as above
  }
}

}  // namespace vorn
