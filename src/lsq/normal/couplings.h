#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lsq/linalg/kernels.h"

namespace vorn {

class BatchColumns;
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
  // Adds the columns of all points of a batch (kBatchPoints, in the order of the matrix).
  virtual void add_columns(std::size_t batch, const BatchColumns& columns) = 0;
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

  // Forms the columns V = L^-1 N_pr of all points of a batch (kBatchPoints, in the order of the
  // matrix), which have room and factors, where zeros are.
  void add_columns(std::size_t batch, const BatchColumns& columns);
  // N_pr x_r of all points of a batch, three elements for each; x_r are the elements of x that
  // belong to the reduced part.
  const double* multiply(std::size_t batch, const Vector& x);

 private:
  void add_stored_columns(std::size_t batch, const BatchColumns& columns);
  void multiply_stored(std::size_t batch, const Vector& x);

  const NormalMatrix* normal_;
  std::unique_ptr<CouplingFormer> former_;  // null when they are stored
  double products_[kBatchPoints][3];
};

}  // namespace vorn
