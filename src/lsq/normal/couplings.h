#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lsq/linalg/kernels.h"

namespace vorn {

class NormalMatrix;
class Vector;

// Forms couplings of points with everything else again, for one reader: it has working memory of
// its own.
class CouplingFormer {
 public:
  CouplingFormer() = default;
  CouplingFormer(const CouplingFormer&) = delete;
  CouplingFormer& operator=(const CouplingFormer&) = delete;
  virtual ~CouplingFormer() = default;
  // Adds the couplings of all points of a batch (kBatchPoints, in the order of the matrix) to
  // `rows`, where those of its first point begin. They are the same as when the matrix was filled,
  // to the last bit.
  virtual void add(std::size_t batch, double* rows) = 0;
  // Adds N_pr x_r of all points of a batch to `products`, three elements for each.
  virtual void multiply(std::size_t batch, const Vector& x, double* products) = 0;
};

// Who can form the couplings of a matrix again.
class CouplingSource {
 public:
  virtual ~CouplingSource() = default;
  virtual std::unique_ptr<CouplingFormer> make_former() const = 0;
};

// The couplings N_pr of a matrix, read batch by batch of points: where the matrix stores them, or,
// where it does not, formed again. Each worker has a reader of its own.
class Couplings {
 public:
  // Without a former: those that the matrix stores.
  Couplings(const NormalMatrix& normal, std::unique_ptr<CouplingFormer> former);

  // Goes to the points of a batch (kBatchPoints, in the order of the matrix).
  void go_to(std::size_t batch);
  // The rows of a point of that batch, given its place in the order of all points: its coupling
  // with a block, 3 x width, row-major, begins at the `start` of the `NormalMatrix::PointBlock`.
  // Valid until the reader goes elsewhere.
  const double* at(std::size_t rank) const;
  // N_pr x_r of all points of a batch, three elements for each; x_r are the elements of x that
  // belong to the reduced part. The reader need not go there.
  const double* multiply(std::size_t batch, const Vector& x);

 private:
  void multiply_stored(std::size_t batch, const Vector& x);

  const NormalMatrix* normal_;
  std::unique_ptr<CouplingFormer> former_;  // null when they are stored
  std::vector<double> formed_;              // those of the batch
  std::size_t first_ = 0;                   // where they begin among those of all points
  double products_[kBatchPoints][3];
};

}  // namespace vorn
