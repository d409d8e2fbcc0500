#pragma once

namespace vorn {

// A number with its derivatives with respect to two variables x and y: formulas that are templates
// of their number type give their exact derivatives by the rules of differentiation (forward mode;
// Wengert 1964). T is a number or a pack of numbers.
template <class T>
struct Dual {
  T value;
  T dx;  // derivative with respect to x
  T dy;

  Dual() = default;
  Dual(double constant) : value(constant), dx(0.0), dy(0.0) {}
  Dual(const T& v, const T& by_x, const T& by_y) : value(v), dx(by_x), dy(by_y) {}

  Dual operator-() const { return {-value, -dx, -dy}; }
  friend Dual operator+(const Dual& a, const Dual& b) {
    return {a.value + b.value, a.dx + b.dx, a.dy + b.dy};
  }
  friend Dual operator-(const Dual& a, const Dual& b) {
    return {a.value - b.value, a.dx - b.dx, a.dy - b.dy};
  }
  friend Dual operator*(const Dual& a, const Dual& b) {
    return {a.value * b.value, a.dx * b.value + a.value * b.dx, a.dy * b.value + a.value * b.dy};
  }
  friend Dual operator/(const Dual& a, const Dual& b) {
    const T q = a.value / b.value;
    return {q, (a.dx - q * b.dx) / b.value, (a.dy - q * b.dy) / b.value};
  }
  // Constants have no derivatives.
  friend Dual operator+(const Dual& a, double b) { return {a.value + b, a.dx, a.dy}; }
  friend Dual operator-(const Dual& a, double b) { return {a.value - b, a.dx, a.dy}; }
  friend Dual operator*(const Dual& a, double b) { return {a.value * b, a.dx * b, a.dy * b}; }
  friend Dual operator*(double a, const Dual& b) { return b * a; }
  Dual& operator+=(const Dual& other) { return *this = *this + other; }
};

}  // namespace vorn
