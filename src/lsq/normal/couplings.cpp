// Couplings of object points with the reduced part. An image point whose observation equation has
// the design rows A_p of its object point and A_r of everything else, with weights P, adds
// A_p'P A_r, so that over all image points of an object point
//
//   N_pr = sum of A_p'P A_r,   N_pr x_r = sum of A_p'P (A_r x_r).
//
// Stored, N_pr takes some 200 bytes an image point that three passes of an iteration fetch from
// memory; formed again from the image points, which are there anyway, neither the columns that the
// elimination takes,
//
//   V = L_p^-1 N_pr = sum of (L_p^-1 A_p'P) A_r,
//
// nor the product need any N_pr at all.

#include "lsq/normal/couplings.h"

#include <algorithm>
#include <utility>

#include "lsq/normal/batch_columns.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {
namespace {

constexpr auto kBatch = static_cast<std::size_t>(kBatchPoints);

}  // namespace

Couplings::Couplings(const NormalMatrix& normal, std::unique_ptr<CouplingFormer> former)
    : normal_(&normal), former_(std::move(former)) {}

void Couplings::add_columns(std::size_t batch, const BatchColumns& columns) {
  if (former_ == nullptr) {
    add_stored_columns(batch, columns);
  } else {
    former_->add_columns(batch, columns);
  }
}

void Couplings::add_stored_columns(std::size_t batch, const BatchColumns& columns) {
  const Kernels& kernel = kernels();
  const std::size_t end = std::min(normal_->point_order().size(), (batch + 1) * kBatch);
  for (std::size_t rank = batch * kBatch; rank < end; ++rank) {
    const std::size_t point = rank % kBatch;
    const double* const rows = normal_->stored_couplings() + normal_->coupling_offset(rank);
    for (const NormalMatrix::PointBlock& at : normal_->blocks_at(rank)) {
      const std::int32_t stride = normal_->block_width(at.block);
      columns.for_each_piece(at.block, [&](const TilePiece& piece, const BatchPiece& to) {
        kernel.divide_piece(columns.factor(point), rows + at.start + piece.column, stride,
                            piece.width, to.v + BatchColumns::offset(to, point));
      });
    }
  }
}

const double* Couplings::multiply(std::size_t batch, const Vector& x) {
  if (former_ == nullptr) {
    multiply_stored(batch, x);
  } else {
    std::fill_n(products_[0], 3 * kBatch, 0.0);
    former_->multiply(batch, x, products_[0]);
  }
  return products_[0];
}

void Couplings::multiply_stored(std::size_t batch, const Vector& x) {
  const Kernels& kernel = kernels();
  const std::size_t end = std::min(normal_->point_order().size(), (batch + 1) * kBatch);
  std::vector<BlockProduct> products;
  for (std::size_t k = batch * kBatch; k < end; ++k) {
    normal_->prefetch_couplings(k + 2);
    products.clear();
    const double* const rows = normal_->stored_couplings() + normal_->coupling_offset(k);
    for (const NormalMatrix::PointBlock& block : normal_->blocks_at(k)) {
      products.push_back({rows + block.start, x.data() + normal_->block_index(block.block),
                          normal_->block_width(block.block)});
    }
    kernel.multiply_blocks(products_[k % kBatch], products.data(),
                           static_cast<std::int64_t>(products.size()));
  }
}

}  // namespace vorn
