#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace vorn {

// Three components in one frame: a point, a direction, an image vector, three angles; of numbers,
// or of packs of numbers.
template <class T>
using Vec3Of = std::array<T, 3>;
using Vec3 = Vec3Of<double>;
// 3x3 matrix of three rows; m[i][j] is row i, column j.
using Mat3 = std::array<Vec3, 3>;

inline Vec3 operator+(const Vec3& a, const Vec3& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
template <class T = double>
Vec3Of<T> operator-(const Vec3Of<T>& a, const Vec3& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline Vec3 operator-(const Vec3& a) { return {-a[0], -a[1], -a[2]}; }
inline Vec3 operator*(double s, const Vec3& a) { return {s * a[0], s * a[1], s * a[2]}; }
inline double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
template <class T = double>
Vec3Of<T> cross(const Vec3Of<T>& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline double length(const Vec3& v) { return std::sqrt(dot(v, v)); }
// The unit vector along another one.
inline Vec3 unit(const Vec3& v) { return (1.0 / length(v)) * v; }
// M v.
inline Vec3 operator*(const Mat3& m, const Vec3& v) {
  return {dot(m[0], v), dot(m[1], v), dot(m[2], v)};
}
// M' v.
template <class T = double>
Vec3Of<T> transposed_times(const Mat3& m, const Vec3Of<T>& v) {
  return {m[0][0] * v[0] + m[1][0] * v[1] + m[2][0] * v[2],
          m[0][1] * v[0] + m[1][1] * v[1] + m[2][1] * v[2],
          m[0][2] * v[0] + m[1][2] * v[1] + m[2][2] * v[2]};
}
inline Mat3 transposed(const Mat3& m) {
  return {{{m[0][0], m[1][0], m[2][0]}, {m[0][1], m[1][1], m[2][1]}, {m[0][2], m[1][2], m[2][2]}}};
}

}  // namespace vorn
