#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

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

// Takes the points of a matrix to its reduced matrix, S -= V'V, up to 64 at once. Their columns
// V = L^-1 N_pr are lined up by the pieces of the reduced matrix that they meet, so that every pair
// of pieces is met once with all points that it has in common.
class PointBatch {
 public:
  PointBatch(const NormalMatrix& normal, const ReducedMatrix& reduced);

  // All points of the matrix. Their part of the diagonal of L goes to `diagonal`, unless it is
  // null. False when a pivot is not greater than 0.
  [[nodiscard]] bool eliminate_all(double* diagonal, const ForwardPass* forward);

 private:
  // A piece that a batch meets, and the points that meet it.
  struct Met {
    std::uint64_t points;
    std::int32_t piece;
  };

  void list_pieces(std::span<const std::int32_t> points, std::vector<std::uint64_t>& bits_of);
  [[nodiscard]] bool eliminate(std::span<const std::int32_t> points, std::span<const Met> met,
                               double* diagonal, const ForwardPass* forward);
  void make_room(std::span<const Met> met);
  void line_up(std::int32_t point, const ForwardPass* forward);

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

}  // namespace vorn
