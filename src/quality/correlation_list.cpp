#include "quality/correlation_list.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vorn {
namespace {

// Whether x stands in front of y in the list.
bool is_larger(const CorrelationResult& x, const CorrelationResult& y) {
  const double size_x = std::fabs(x.r);
  const double size_y = std::fabs(y.r);
  if (size_x != size_y) return size_x > size_y;
  return std::pair(x.a.number(), x.b.number()) < std::pair(y.a.number(), y.b.number());
}

}  // namespace

void CorrelationList::add(const Unknown& a, const Unknown& b, double r) {
  const auto type_a = static_cast<std::size_t>(object_type_of(*a.object));
  const auto type_b = static_cast<std::size_t>(object_type_of(*b.object));
  constexpr auto kTypes = static_cast<std::size_t>(kNumObjectTypes);
  const std::size_t within = a.object == b.object ? 1 : 0;
  Kind& kind = kinds_[(within * kTypes + type_a) * kTypes + type_b];
  if (kind.count++ == 0) kind.example = {a, b, r};
  keep({a, b, r});
}

void CorrelationList::take(const CorrelationList& other) {
  for (std::size_t k = 0; k < kinds_.size(); ++k) {
    const Kind& kind = other.kinds_[k];
    if (kinds_[k].count == 0) kinds_[k].example = kind.example;
    kinds_[k].count += kind.count;
  }
  for (const CorrelationResult& result : other.largest_) keep(result);
}

void CorrelationList::keep(const CorrelationResult& result) {
  if (largest_.size() == kMaxListed) {
    if (!is_larger(result, largest_.front())) return;
    std::pop_heap(largest_.begin(), largest_.end(), is_larger);
    largest_.pop_back();
  }
  largest_.push_back(result);
  std::push_heap(largest_.begin(), largest_.end(), is_larger);
}

std::vector<CorrelationResult> CorrelationList::take_largest() {
  std::sort_heap(largest_.begin(), largest_.end(), is_larger);
  return std::exchange(largest_, {});
}

std::map<std::string, std::int64_t> CorrelationList::counts() const {
  std::map<std::string, std::int64_t> counts;
  for (const Kind& kind : kinds_) {
    if (kind.count > 0) counts[correlation_kind(kind.example.a, kind.example.b)] = kind.count;
  }
  return counts;
}

}  // namespace vorn
