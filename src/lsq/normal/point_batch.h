#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/workers.h"
#include "lsq/linalg/kernels.h"
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

  // One point with V and U = V Z, Z a symmetric matrix.
  struct Product {
    std::int32_t point;
    const PointFactor& factor;
    const double* v;  // 3 rows of the coupled width, in the order of the point's blocks
    const double* u;  // likewise
  };
  // Calls visit(product) for every point, in the order of the matrix; workers multiply a batch
  // each. `z` has the tiles of S, full ones in the diagonal. All pivots are greater than 0.
  template <class Visit>
  void for_each_product(const TileMatrix& z, Visit visit) const {
    const std::vector<Start> starts = starts_of_batches();
    std::vector<WayBack> ways;
    while (ways.size() < workers().count()) ways.push_back({{}, lining_up(), {}, {}, {}});
    for (std::size_t first = 0; first < starts.size(); first += ways.size()) {
      const std::size_t count = std::min(ways.size(), starts.size() - first);
      workers().run(count, [&](std::size_t k, std::size_t) {
        multiply(z, starts[first + k], first + k, ways[k]);
      });
      for (std::size_t k = 0; k < count; ++k) {
        for (const std::int32_t point : ways[k].batch.points) visit(take_out(point, ways[k]));
      }
    }
  }

 private:
  // A piece that a batch meets, and the points that meet it.
  struct Met {
    std::uint64_t points;
    std::int32_t piece;
  };

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
    std::span<const Met> met;
    std::vector<BatchPiece> pieces;
    std::vector<double> columns;
    double y[kBatchPoints][3];            // L^-1 b_p of the points
    std::vector<TilePieces> in_tile_row;  // for each tile row that the batches at work meet
    bool positive = false;                // all pivots are
  };
  // Where the next point's columns go, for all pieces of the reduced matrix.
  using Places = std::vector<std::size_t>;
  // What one worker lines batches up with.
  struct LiningUp {
    Places places;
    Couplings couplings;
  };

  // A batch on the way back.
  struct WayBack {
    Batch batch;
    LiningUp with;
    PointFactor factor;
    std::vector<double> products;   // U of the batch, laid out as the columns
    std::vector<double> taken_out;  // V and U of one point
  };

  void list_pieces(std::span<const std::int32_t> points, std::vector<std::uint64_t>& bits_of);
  LiningUp lining_up() const;
  Start take(const Start& start, std::size_t number, Batch& batch) const;
  std::size_t take_batches(std::size_t first);
  [[nodiscard]] bool line_up_all(Batch& batch, LiningUp& with, double* diagonal,
                                 const ForwardPass* forward) const;
  void make_room(Batch& batch, Places& places) const;
  void line_up(const PointFactor& factor, std::size_t rank, double* columns, LiningUp& with) const;
  void find_tile_rows(std::span<Batch> batches);
  void subtract(std::span<const Batch> batches, std::size_t row, std::size_t column) const;
  void subtract_rhs(std::span<const Batch> batches, double* rhs) const;
  std::vector<Start> starts_of_batches() const;
  void multiply(const TileMatrix& z, const Start& start, std::size_t number, WayBack& way) const;
  Product take_out(std::int32_t point, WayBack& way) const;

  const Kernels& kernel_ = kernels();
  const NormalMatrix& normal_;
  const ReducedMatrix& reduced_;
  std::vector<Met> met_;  // by all batches
  std::vector<std::size_t> num_met_;
  Start start_;
  std::vector<Batch> batches_;           // at work
  std::vector<LiningUp> lining_up_;      // of all workers
  std::vector<std::int32_t> tile_rows_;  // that the batches at work meet, ascending
};

}  // namespace vorn
