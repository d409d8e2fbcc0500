#pragma once

#include <cstdint>
#include <random>

namespace vorn::test {

// Random numbers of a seed.
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  // In [0, count).
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(bits() % count); }
  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(engine_);
  }
  double normal() { return normal_(engine_); }

 private:
  std::mt19937_64 engine_;
  std::normal_distribution<double> normal_;
};

}  // namespace vorn::test
