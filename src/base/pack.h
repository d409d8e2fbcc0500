#pragma once

#include <cstdint>

namespace vorn {

// Eight numbers that are computed with side by side: the same quantity of eight image points.
// Formulas that are templates of their number type serve one point and eight alike.
class Pack {
 public:
  static constexpr std::int32_t kSize = 8;

  Pack() = default;
  // Eight times the same number; implicit, as from int to double.
  Pack(double n) : values_{n, n, n, n, n, n, n, n} {}

  double operator[](int lane) const { return values_[lane]; }
  const double* data() const { return reinterpret_cast<const double*>(this); }
  void set(int lane, double number) { values_[lane] = number; }

  Pack operator-() const { return Pack(-values_); }
  friend Pack operator+(const Pack& a, const Pack& b) { return Pack(a.values_ + b.values_); }
  friend Pack operator-(const Pack& a, const Pack& b) { return Pack(a.values_ - b.values_); }
  friend Pack operator*(const Pack& a, const Pack& b) { return Pack(a.values_ * b.values_); }
  friend Pack operator/(const Pack& a, const Pack& b) { return Pack(a.values_ / b.values_); }
  Pack& operator-=(const Pack& other) {
    values_ -= other.values_;
    return *this;
  }
  Pack& operator+=(const Pack& other) {
    values_ += other.values_;
    return *this;
  }

 private:
  // Not aligned: nothing may depend on the alignment of a host's stack.
  typedef double Values
      __attribute__((vector_size(kSize * sizeof(double)), aligned(sizeof(double))));

  explicit Pack(const Values& values) : values_(values) {}

  Values values_;
};

}  // namespace vorn
