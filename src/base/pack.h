#pragma once

#include <array>
#include <cstdint>

namespace vorn {

// Eight numbers side by side: the same quantity of eight image points. What is computed with packs
// is computed by Lanes (base/lanes.h).
class Pack {
 public:
  static constexpr std::int32_t kSize = 8;

  double operator[](int lane) const { return values_[lane]; }
  double* data() { return values_; }
  const double* data() const { return values_; }
  void set(int lane, double number) { values_[lane] = number; }

 private:
  double values_[kSize];
};

using PackPair = std::array<Pack, 2>;

}  // namespace vorn
