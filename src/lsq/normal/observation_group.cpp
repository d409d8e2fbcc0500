#include "lsq/normal/observation_group.h"

#include <cstddef>
#include <cstdint>

namespace vorn {

void add_weighted_observations(const std::vector<const DesignBlock*>& blocks, const Vector& weights,
                               const Vector& misclosures, NormalMatrix& normal, Vector& rhs,
                               double& vtpv) {
  const std::int32_t m = misclosures.size();
  for (std::int32_t r = 0; r < m; ++r) vtpv += weights[r] * misclosures[r] * misclosures[r];
  Matrix product;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const Matrix& a = blocks[i]->a;
    for (std::int32_t c = 0; c < a.cols(); ++c) {
      for (std::int32_t r = 0; r < m; ++r) {
        rhs[blocks[i]->index + c] += a[r][c] * weights[r] * misclosures[r];
      }
    }
    for (std::size_t j = i; j < blocks.size(); ++j) {
      const Matrix& other = blocks[j]->a;
      product.resize(a.cols(), other.cols());
      product.zero();
      for (std::int32_t c = 0; c < a.cols(); ++c) {
        for (std::int32_t d = 0; d < other.cols(); ++d) {
          for (std::int32_t r = 0; r < m; ++r) product[c][d] += a[r][c] * weights[r] * other[r][d];
        }
      }
      normal.add_block(blocks[i]->index, blocks[j]->index, product);
    }
  }
}

}  // namespace vorn
