#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/workers.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/batch_columns.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_factor.h"
#include "lsq/normal/reduced_matrix.h"

namespace vorn {

// Right-hand sides on their way through the elimination of the points.
struct ForwardPass {
  const double* b;  // of the points, by unknowns
  double* y;        // L^-1 b, likewise
  // b_r - V'y in the order of the reduced matrix, with room for a piece behind it
  double* reduced;
};

// The points of a matrix on their way to the reduced matrix and back, up to 64 at once. Their
// columns V = L^-1 N_pr are lined up by the pieces of the reduced matrix that they meet, so that
// every pair of pieces is met once with all points that it has in common. Several workers line up a
// batch each and then subtract in a tile each, batch after batch, which is the order of one worker.
class PointBatch {
 public:
  PointBatch(const NormalMatrix& normal, const ReducedMatrix& reduced);

  // S -= V'V for all points of the matrix. Their part of the diagonal of L goes to `diagonal`,
  // unless it is null. False when a pivot is not greater than 0.
  [[nodiscard]] bool eliminate_all(double* diagonal, const ForwardPass* forward);

  // A piece of V and U = V Z of one point, Z a symmetric matrix: 3 rows of eight each, zero behind
  // the width. Among the point's coupling blocks, which are laid out as those of the matrix, it has
  // its place at `start`, with rows `stride` apart.
  struct PieceProduct {
    const double* v;
    const double* u;
    std::int32_t width;
    std::int32_t start;
    std::int32_t stride;
  };
  struct PointProduct {
    PointFactor factor;
    std::span<const PieceProduct> pieces;
  };
  // The right-hand side alone; all pivots are greater than 0.
  void reduce_rhs(const ForwardPass& forward);

  // Calls visit(batch, products, worker) for every batch with the products of its points, in the
  // order of the matrix. Workers visit a batch each; one alone visits all of them where `alone`.
  // `z` has the tiles of S, full ones in the diagonal. All pivots are greater than 0.
  template <class Visit>
  void for_each_batch(const TileMatrix& z, bool alone, Visit visit) const {
    const std::vector<Start> starts = starts_of_batches();
    std::vector<WayBack> ways;
    while (ways.size() < (alone ? 1 : workers().count())) ways.push_back(way_back());
    const auto visit_batch = [&](std::size_t number, std::size_t worker) {
      WayBack& way = ways[worker];
      multiply(z, starts[number], number, way);
      visit(number, std::span<const PointProduct>(way.points), worker);
    };
    if (!alone) return workers().run(starts.size(), visit_batch);
    for (std::size_t number = 0; number < starts.size(); ++number) visit_batch(number, 0);
  }

 private:
  // Points and pieces of the batch that follows.
  struct Start {
    std::size_t point = 0;
    std::size_t met = 0;
    void clear() { *this = {}; }
  };

  // A batch with its columns.
  struct Batch {
    std::size_t number = 0;
    std::span<const std::int32_t> points;
    std::span<const MetPiece> met;
    BatchColumns columns;
    double y[kBatchPoints][3];            // L^-1 b_p of the points
    std::vector<TilePieces> in_tile_row;  // for each tile row that the batches at work meet
    bool positive = false;                // all pivots are
  };
  // What one worker lines batches up with.
  struct LiningUp {
    std::vector<std::int32_t> places;  // of the pieces of the reduced matrix in a batch
    Couplings couplings;
  };

  // A batch on the way back.
  struct WayBack {
    Batch batch;
    LiningUp with;
    std::vector<double> products;  // U of the batch, laid out as the columns
    std::vector<PieceProduct> pieces;
    std::vector<PointProduct> points;
  };

  void list_pieces(std::span<const std::int32_t> points, std::vector<std::uint64_t>& bits_of);
  LiningUp lining_up() const;
  Start take(const Start& start, std::size_t number, Batch& batch) const;
  std::size_t take_batches(std::size_t first);
  // Lines up all batches, some at once, and calls take(batches); false at a pivot that is not
  // greater than 0.
  template <class Take>
  [[nodiscard]] bool line_up_each(double* diagonal, const ForwardPass* forward, Take take);
  [[nodiscard]] bool line_up_all(Batch& batch, LiningUp& with, double* diagonal,
                                 const ForwardPass* forward) const;
  void find_tile_rows(std::span<Batch> batches);
  void subtract(std::span<const Batch> batches, std::size_t row, std::size_t column) const;
  void subtract_rhs(std::span<const Batch> batches, double* rhs) const;
  std::vector<Start> starts_of_batches() const;
  WayBack way_back() const { return {{}, lining_up(), {}, {}, {}}; }
  void multiply(const TileMatrix& z, const Start& start, std::size_t number, WayBack& way) const;
  void list_products(std::size_t number, WayBack& way) const;

  const Kernels& kernel_ = kernels();
  const NormalMatrix& normal_;
  const ReducedMatrix& reduced_;
  std::vector<MetPiece> met_;  // by all batches
  std::vector<std::size_t> num_met_;
  Start start_;
  std::vector<Batch> batches_;           // at work
  std::vector<LiningUp> lining_up_;      // of all workers
  std::vector<std::int32_t> tile_rows_;  // that the batches at work meet, ascending
};

}  // namespace vorn
