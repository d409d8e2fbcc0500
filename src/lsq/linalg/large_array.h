#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vorn {

// Gives memory back that was taken with an alignment.
struct AlignedRelease {
  std::size_t alignment = 0;
  void operator()(double* values) const;
};

// A large array of doubles in one allocation, aligned to cache lines, on large pages where the
// system offers them. Takes memory only to grow, and
// gives it back when nothing is left.
class LargeArray {
 public:
  // Whether so many doubles fit the address space, with room left for the rest of a host.
  static bool fits(std::uint64_t count);
  // Contents are undefined afterwards. False when the address space or the system has no room; the
  // array is empty then.
  bool resize(std::uint64_t count);
  void zero();
  double* data() { return values_.get(); }
  const double* data() const { return values_.get(); }
  std::size_t size() const { return size_; }

 private:
  std::unique_ptr<double[], AlignedRelease> values_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace vorn
