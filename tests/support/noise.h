#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace vorn::test {

// Random numbers that are the same on every platform: splitmix64 (Steele, Lea, Flood 2014) and the
// transformation of Box and Muller (1958).
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : state_(seed) {}

  std::uint64_t bits() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }
  // In [0, count).
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(bits() % count); }
  double uniform(double low = 0.0, double high = 1.0) {
    return low + (high - low) * (static_cast<double>(bits() >> 12U) + 0.5) * 0x1p-52;
  }
  double normal() {
    const double radius = std::sqrt(-2.0 * std::log(uniform()));
    return radius * std::cos(2.0 * std::numbers::pi * uniform());
  }

 private:
  std::uint64_t state_;
};

}  // namespace vorn::test
