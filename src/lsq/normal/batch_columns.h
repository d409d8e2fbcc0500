#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/place.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/point_factor.h"
#include "lsq/normal/reduced_matrix.h"

namespace vorn {

// A piece of the reduced matrix that a batch of points meets, and the points that meet it.
struct MetPiece {
  std::uint64_t points;
  std::int32_t piece;
};

// The columns V = L^-1 N_pr of a batch of points, lined up by the pieces of the reduced matrix
// that the points meet, with the factors L that they take.
class BatchColumns {
 public:
  // Room for the columns in these pieces, ascending, all zero. `places` has an element for each
  // piece of the reduced matrix; it belongs to this batch as long as columns are formed or read.
  void set_pieces(const ReducedMatrix& reduced, std::span<const MetPiece> met,
                  std::vector<std::int32_t>& places);
  std::vector<BatchPiece>& pieces() { return pieces_; }
  const std::vector<BatchPiece>& pieces() const { return pieces_; }
  const std::vector<double>& values() const { return values_; }

  void set_factor(std::size_t point, const PointFactor& factor) {
    std::copy_n(factor.packed(), 6, factors_[point]);
  }
  const double* factor(std::size_t point) const { return factors_[point]; }

  // Calls visit(piece of the reduced matrix, piece of the batch) for the pieces of a block that the
  // batch meets.
  template <class Visit>
  void for_each_piece(std::int32_t block, Visit visit) const {
    const std::int32_t first = reduced_->first_piece(block);
    for (std::int32_t k = first; k < first + reduced_->num_pieces(block); ++k) {
      visit(reduced_->pieces()[place(k)], pieces_[place(places_[k])]);
    }
  }
  // Where a point that meets a piece has its columns among those of the piece.
  static std::size_t offset(const BatchPiece& piece, std::size_t point) {
    const std::uint64_t before = (std::uint64_t{1} << point) - 1;
    return place(kPointColumns * std::popcount(piece.points & before));
  }

 private:
  const ReducedMatrix* reduced_ = nullptr;
  const std::int32_t* places_ = nullptr;  // of the pieces of the reduced matrix in the batch
  std::vector<BatchPiece> pieces_;
  std::vector<double> values_;
  double factors_[kBatchPoints][kFactorStride] = {};
};

}  // namespace vorn
