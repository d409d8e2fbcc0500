#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/pack.h"

namespace vorn {

// N numbers of a pack that a processor computes with at once, N being 2, 4 or 8: a number type for
// formulas that are templates of it. Each lane gets the operations that one number would get, none
// of them fused. Only what is compiled for vectors of N numbers may use Lanes<N>: so instances for
// processors that not everybody has are never those that the linker picks for all.
template <std::size_t N>
class Lanes {
 public:
  Lanes() = default;
  // The same number N times; implicit, as from int to double.
  [[gnu::always_inline]] Lanes(double n) : Lanes(n, std::make_index_sequence<N>()) {}
  [[gnu::always_inline]] static Lanes load(const double* from) {
    return *reinterpret_cast<const Lanes*>(from);
  }
  [[gnu::always_inline]] void store(double* to) const { *reinterpret_cast<Lanes*>(to) = *this; }

  [[gnu::always_inline]] Lanes operator-() const { return Lanes(-values_); }
  [[gnu::always_inline]] friend Lanes operator+(const Lanes& a, const Lanes& b) {
    return Lanes(a.values_ + b.values_);
  }
  [[gnu::always_inline]] friend Lanes operator-(const Lanes& a, const Lanes& b) {
    return Lanes(a.values_ - b.values_);
  }
  [[gnu::always_inline]] friend Lanes operator*(const Lanes& a, const Lanes& b) {
    return Lanes(a.values_ * b.values_);
  }
  [[gnu::always_inline]] friend Lanes operator/(const Lanes& a, const Lanes& b) {
    return Lanes(a.values_ / b.values_);
  }
  [[gnu::always_inline]] Lanes& operator-=(const Lanes& other) {
    values_ -= other.values_;
    return *this;
  }
  [[gnu::always_inline]] Lanes& operator+=(const Lanes& other) {
    values_ += other.values_;
    return *this;
  }
  // Whether any of the numbers is zero.
  [[gnu::always_inline]] friend bool any_is_zero(const Lanes& a) {
    double numbers[N];
    a.store(numbers);
    bool any = false;
    for (const double number : numbers) any |= number == 0.0;
    return any;
  }

 private:
  // Not aligned: nothing may depend on the alignment of a host's stack.
  typedef double Values
      __attribute__((vector_size(N * sizeof(double)), aligned(sizeof(double)), may_alias));

  [[gnu::always_inline]] explicit Lanes(const Values& values) : values_(values) {}
  template <std::size_t... I>
  [[gnu::always_inline]] Lanes(double n, std::index_sequence<I...>)
      : values_{(static_cast<void>(I), n)...} {}

  Values values_;
};

// A row of packs, of each of which the same N lanes are computed with.
template <std::size_t N>
class LaneRow {
 public:
  // From the first of the lanes in the row's first pack on.
  [[gnu::always_inline]] explicit LaneRow(double* at) : at_(at) {}

  [[gnu::always_inline]] Lanes<N>& operator[](std::int32_t column) const {
    return *reinterpret_cast<Lanes<N>*>(at_ + std::ptrdiff_t{Pack::kSize} * column);
  }
  [[gnu::always_inline]] LaneRow operator+(std::int32_t columns) const {
    return LaneRow(at_ + std::ptrdiff_t{Pack::kSize} * columns);
  }

 private:
  double* at_;
};

}  // namespace vorn
