#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "quality/results.h"

namespace vorn {

// Collects correlations over a limit: counts all of them by kind and keeps the largest.
class CorrelationList {
 public:
  explicit CorrelationList(double limit) : limit_(limit) {}

  double limit() const { return limit_; }
  // Takes note of a correlation whose absolute value is not below the limit; a stands in front of
  // b.
  void add(const Unknown& a, const Unknown& b, double r);

  // Takes over those of another list with the same limit: what they are together does not depend on
  // who found them.
  void take(const CorrelationList& other);

  // The largest ones, descending; those of one size in the order of their unknowns.
  [[nodiscard]] std::vector<CorrelationResult> take_largest();
  // Numbers of pairs of the kinds that there are.
  [[nodiscard]] std::map<std::string, std::int64_t> counts() const;

 private:
  static constexpr std::size_t kMaxListed = 10000;
  struct Kind {
    std::int64_t count = 0;
    CorrelationResult example;
  };

  void keep(const CorrelationResult& result);

  double limit_;
  std::array<Kind, 2 * static_cast<std::size_t>(kNumObjectTypes) * kNumObjectTypes> kinds_{};
  std::vector<CorrelationResult> largest_;  // a heap, the smallest on top once it is full
};

}  // namespace vorn
