#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/workers.h"
#include "lsq/linalg/matrix.h"
#include "lsq/linalg/tile_inverse.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_batch.h"
#include "lsq/normal/point_elimination.h"

namespace vorn {

// Parts of the inverse Q of structured normal equations, without a U x U matrix: of the reduced
// part what the pattern of its factor holds (all blocks that meet in a group or in a point are in
// it), and from it, point by point, the cofactors of the point and its couplings with all blocks
// that it meets,
//
//   Q_rr = S^-1,   Q_pr = -L_p^-T U,   Q_pp = L_p^-T (I + U V') L_p^-1,   U = V Q_rr
//
// in the notation of point_elimination.cpp. Cofactors of two points, and of blocks that never meet,
// are columns of the inverse: solutions for unit vectors.
class SelectedInverse {
 public:
  // The factorisation has succeeded; it and its matrix stay as they are.
  explicit SelectedInverse(const PointElimination& factor)
      : factor_(factor), normal_(factor.matrix()), reduced_(factor.reduced()) {}

  // Computes the reduced part: about twice the time of the factorisation of S and the memory of its
  // tiles. False when they do not fit the address space.
  [[nodiscard]] bool compute() { return inverse_.compute(reduced_.tiles); }

  // Whether the cofactor of two unknowns of the reduced part is among the parts, and its value.
  bool has(std::int32_t i, std::int32_t j) const { return inverse_.has(row_of(i), row_of(j)); }
  double at(std::int32_t i, std::int32_t j) const { return inverse_.at(row_of(i), row_of(j)); }
  // The cofactors of two blocks that meet, width of a x width of b.
  void block_pair(std::int32_t a, std::int32_t b, Matrix& q) const;

  // The cofactors of a point.
  struct PointCofactors {
    std::int32_t point;
    double own[3][3];                                  // Q_pp
    std::span<const NormalMatrix::PointBlock> blocks;  // that the point meets
    // Q_pr, laid out as the couplings of the matrix: the block `at` of `blocks`,
    // 3 x width, row-major, at coupled[at.start].
    const double* coupled;
  };
  // Calls visit(batch, cofactors, worker) for every batch of points, in the order of the matrix
  // (`NormalMatrix::point_order`). Workers visit a batch each, or one alone visits all of them.
  // What is visited is valid until the worker's next visit, and may be changed.
  template <class Visit>
  void for_each_batch(bool alone, Visit visit) const {
    std::vector<BatchCofactors> rooms(workers().count());
    factor_.batches().for_each_batch(
        inverse_.tiles(), alone,
        [&](std::size_t batch, std::span<const PointBatch::PointProduct> products,
            std::size_t worker) {
          find_cofactors(batch, products, rooms[worker]);
          visit(batch, std::span<PointCofactors>(rooms[worker].points), worker);
        });
  }

 private:
  std::int32_t row_of(std::int32_t unknown) const {
    const std::int32_t block = normal_.block_of(unknown);
    return reduced_.start(block) + unknown - normal_.block_index(block);
  }
  // Those of the points of a batch.
  struct BatchCofactors {
    std::vector<PointCofactors> points;
    std::vector<double> coupled;
  };
  void find_cofactors(std::size_t batch, std::span<const PointBatch::PointProduct> products,
                      BatchCofactors& cofactors) const;

  const PointElimination& factor_;
  const NormalMatrix& normal_;
  const ReducedMatrix& reduced_;
  TileInverse inverse_;
};

}  // namespace vorn
