#include "lsq/observation_group.h"

#include "lsq/cholesky.h"
#include "lsq/normal_matrix.h"

namespace vorn {
namespace {

// A' P B for A (m x n1) and B (m x n2) with PB formed beforehand.
void transpose_product(const Matrix& a, const Matrix& pb, Matrix& product) {
  product.resize(a.cols(), pb.cols());
  for (std::int32_t i = 0; i < a.cols(); ++i) {
    for (std::int32_t j = 0; j < pb.cols(); ++j) {
      double sum = 0.0;
      for (std::int32_t r = 0; r < a.rows(); ++r) sum += a[r][i] * pb[r][j];
      product[i][j] = sum;
    }
  }
}

void product_of(const Matrix& p, const Matrix& a, Matrix& product) {
  product.resize(p.rows(), a.cols());
  for (std::int32_t i = 0; i < p.rows(); ++i) {
    for (std::int32_t j = 0; j < a.cols(); ++j) {
      double sum = 0.0;
      for (std::int32_t k = 0; k < p.cols(); ++k) sum += p[i][k] * a[k][j];
      product[i][j] = sum;
    }
  }
}

// Adds A'PA, A'Pl and l'Pl for a symmetric weight matrix P.
void add_group(const std::vector<const DesignBlock*>& blocks, const Matrix& weights,
               const Vector& reduced, NormalMatrix& normal, Vector& rhs, double& vtpv) {
  const std::int32_t m = reduced.size();
  Vector weighted(m);
  for (std::int32_t r = 0; r < m; ++r) {
    weighted[r] = 0.0;
    for (std::int32_t s = 0; s < m; ++s) weighted[r] += weights[r][s] * reduced[s];
    vtpv += reduced[r] * weighted[r];
  }
  Matrix weighted_block;
  Matrix product;
  for (std::size_t j = 0; j < blocks.size(); ++j) {
    product_of(weights, blocks[j]->a, weighted_block);
    for (std::size_t i = 0; i <= j; ++i) {
      transpose_product(blocks[i]->a, weighted_block, product);
      normal.add_block(blocks[i]->index, blocks[j]->index, product);
    }
    for (std::int32_t c = 0; c < blocks[j]->a.cols(); ++c) {
      for (std::int32_t r = 0; r < m; ++r) {
        rhs[blocks[j]->index + c] += blocks[j]->a[r][c] * weighted[r];
      }
    }
  }
}

}  // namespace

void add_weighted_observations(const std::vector<const DesignBlock*>& blocks, const Vector& weights,
                               const Vector& reduced, NormalMatrix& normal, Vector& rhs,
                               double& vtpv) {
  Matrix diagonal(weights.size(), weights.size());
  diagonal.zero();
  for (std::int32_t r = 0; r < weights.size(); ++r) diagonal[r][r] = weights[r];
  add_group(blocks, diagonal, reduced, normal, rhs, vtpv);
}

bool add_observation_group(const std::vector<const DesignBlock*>& blocks, const Matrix& b,
                           const Matrix& cofactors, const Vector& reduced, NormalMatrix& normal,
                           Vector& rhs, double& vtpv) {
  Matrix bq;
  product_of(b, cofactors, bq);
  Matrix weights(b.rows(), b.rows());
  for (std::int32_t i = 0; i < b.rows(); ++i) {
    for (std::int32_t j = 0; j < b.rows(); ++j) {
      weights[i][j] = 0.0;
      for (std::int32_t k = 0; k < bq.cols(); ++k) weights[i][j] += bq[i][k] * b[j][k];
    }
  }
  Vector p;
  if (cholesky(weights, p) != 0) {
    standard_output() << "ERROR: Decomposition of weight matrix failed.\n";
    return false;
  }
  invert_from_cholesky(weights, p);
  weights.symmetrise();
  add_group(blocks, weights, reduced, normal, rhs, vtpv);
  return true;
}

}  // namespace vorn
