#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/row_pair.h"
#include "geometry/vec3.h"

namespace vorn {

// What the collinearity equations take of an exterior orientation.
struct Perspective {
  Vec3 centre{};                                     // with position correction
  Mat3 rotation{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};  // R
  std::int32_t num_rotation_params = 3;              // 3 angles, or the 4 elements of a quaternion
  Mat3 axes{};                                       // of the angles in image space, one a row
  std::array<Mat3, 4> matrix_derivs{};               // of R by the elements
};

// ---- formulas, for one point or for several side by side ---------------------------------------

// A point on its way into the image. T is a number or Lanes.
template <class T>
struct PointState {
  Vec3Of<T> d;   // X - Xo
  Vec3Of<T> u;   // R'd; u[2] is the denominator N
  T z_by_n;      // z/N
  T z_by_n_sqr;  // z/N^2

  // Elements of the column of a parameter p from dU/dp: dx/dp = z/N (dUx/dp - Ux/N dN/dp), dy/dp
  // likewise.
  template <class Row>
  void set_column(const RowPair<Row>& a, std::int32_t column, const Vec3Of<T>& du) const {
    a.x[column] = z_by_n * du[0] - z_by_n_sqr * u[0] * du[2];
    a.y[column] = z_by_n * du[1] - z_by_n_sqr * u[1] * du[2];
  }
};

template <class T>
PointState<T> state_of(const Perspective& perspective, const Vec3Of<T>& object_point) {
  PointState<T> state;
  state.d = object_point - perspective.centre;
  state.u = transposed_times(perspective.rotation, state.d);
  return state;
}

// The collinearity equations.
template <class T>
Vec3Of<T> image_of(const T& z, const Vec3Of<T>& u) {
  return {z * u[0] / u[2], z * u[1] / u[2], z};
}

// Divides by the denominator, and fills the columns of the projection centre and the object point.
template <class T, class Row>
void fill_centre_columns(const Perspective& perspective, const T& z, PointState<T>& state,
                         const RowPair<Row>& geometry, const RowPair<Row>& point) {
  const auto& [ux, uy, n] = state.u;
  state.z_by_n = z / n;
  state.z_by_n_sqr = state.z_by_n / n;
  for (std::int32_t k = 0; k < 3; ++k) {
    const Vec3& row = perspective.rotation[static_cast<std::size_t>(k)];
    const T x = (row[2] * ux - row[0] * n) * state.z_by_n_sqr;
    const T y = (row[2] * uy - row[1] * n) * state.z_by_n_sqr;
    geometry.x[k] = x;
    geometry.y[k] = y;
    point.x[k] = -x;
    point.y[k] = -y;
  }
}

// Fills the columns of the rotation parameters: dU/dp = U x b for an angle p with the axis b in
// image space, dU/dp = (dR/dp)'(X - Xo) for an element p of a quaternion.
template <class T, class Row>
void fill_rotation_columns(const Perspective& perspective, const PointState<T>& state,
                           const RowPair<Row>& a) {
  if (perspective.num_rotation_params == 3) {
    for (std::int32_t k = 0; k < 3; ++k) {
      state.set_column(a, k, cross(state.u, perspective.axes[static_cast<std::size_t>(k)]));
    }
    return;
  }
  for (std::int32_t k = 0; k < 4; ++k) {
    const Mat3& dr = perspective.matrix_derivs[static_cast<std::size_t>(k)];
    state.set_column(a, k, transposed_times(dr, state.d));
  }
}

// Fills `count` columns of a polynomial in time with three components from those of the components:
// column 3k + c is the column of component c times tau^k.
template <class Row, class ComponentsRow>
void fill_time_columns(double tau, std::int32_t count, const ComponentsRow& components,
                       const Row& row) {
  for (std::int32_t j = 0; j < count; ++j) row[j] = j < 3 ? components[j] : row[j - 3] * tau;
}

}  // namespace vorn
