#pragma once

#include <cstdint>
#include <vector>

#include "lsq/linalg/matrix.h"

namespace vorn {

class BundleProject;
class NormalMatrix;

// How an unknown takes part in the diagnosis.
enum class UnknownRole : std::uint8_t {
  active,
  fixed,
  unobserved,  // nothing depends on it: no image, no observation of its own
  pinned       // found to be undetermined by itself and left out
};

// What the observations say about each unknown by itself: its element of the diagonal of N, and
// where that comes from.
class UnknownWeights {
 public:
  UnknownWeights() = default;
  // `normal` holds what the images give, and nothing else yet.
  UnknownWeights(const BundleProject& project, const NormalMatrix& normal);

  std::int32_t size() const { return image_diagonal_.size(); }
  UnknownRole role(std::int32_t u) const { return roles_[static_cast<std::size_t>(u)]; }
  bool is_active(std::int32_t u) const { return role(u) == UnknownRole::active; }
  void pin(std::int32_t u) { roles_[static_cast<std::size_t>(u)] = UnknownRole::pinned; }
  // What images say about an unknown, what it says itself, and both: the diagonal of N. The weight
  // that suppresses a fixed unknown says nothing.
  double image_weight(std::int32_t u) const { return image_diagonal_[u]; }
  double own_weight(std::int32_t u) const { return own_weights_[u]; }
  double diagonal(std::int32_t u) const { return image_diagonal_[u] + own_weights_[u]; }
  // Asks memory for what there is about three unknowns of an object point.
  void prefetch(std::int32_t first) const {
    __builtin_prefetch(image_diagonal_.data() + first);
    __builtin_prefetch(own_weights_.data() + first);
  }

 private:
  Vector image_diagonal_;
  Vector own_weights_;
  std::vector<UnknownRole> roles_;
};

}  // namespace vorn
