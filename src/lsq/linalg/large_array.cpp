#include "lsq/linalg/large_array.h"

#include <algorithm>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace vorn {
namespace {

constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kLargePage = std::size_t{1} << 21U;

}  // namespace

void AlignedRelease::operator()(double* values) const {
  ::operator delete (values, std::align_val_t{alignment});
}

bool LargeArray::fits(std::uint64_t count) {
  return count <= static_cast<std::size_t>(-1) / 2 / sizeof(double);
}

bool LargeArray::resize(std::uint64_t count) {
  if (count == 0 || count > capacity_) {
    values_.reset();
    size_ = 0;
    capacity_ = 0;
    if (count == 0) return true;
    if (!fits(count)) return false;
    std::size_t bytes = static_cast<std::size_t>(count) * sizeof(double);
    const bool large = bytes >= kLargePage;
    const std::size_t alignment = large ? kLargePage : kCacheLine;
    // Whole pages, so that the last one can be a large one, too.
    bytes = (bytes + alignment - 1) / alignment * alignment;
    void* const memory = ::operator new (bytes, std::align_val_t{alignment}, std::nothrow);
    if (memory == nullptr) return false;
#ifdef __linux__
    // A wish; the system may decline.
    if (large) madvise(memory, bytes, MADV_HUGEPAGE);
#endif
    values_ = {static_cast<double*>(memory), AlignedRelease{alignment}};
    capacity_ = static_cast<std::size_t>(count);
  }
  size_ = static_cast<std::size_t>(count);
  return true;
}

void LargeArray::zero() { std::fill_n(values_.get(), size_, 0.0); }

}  // namespace vorn
