#pragma once

#include <vector>

#include "app/exchange/reconstruction.h"

namespace vorn::exchange {

// X' = scale R X + shift.
struct Similarity {
  double scale = 1.0;
  Mat3 r = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  Vec3 shift{};

  Vec3 operator()(const Vec3& x) const { return scale * (r * x) + shift; }
};

// The similarity that brings `from` to `to` with the least sum of squares (Horn 1987). False when
// the points do not determine it: fewer than three, or all near one line.
[[nodiscard]] bool find_similarity(const std::vector<Vec3>& from, const std::vector<Vec3>& to,
                                   Similarity& result);

// Moves a model; projections stay what they are.
void transform(Reconstruction& model, const Similarity& similarity);

}  // namespace vorn::exchange
