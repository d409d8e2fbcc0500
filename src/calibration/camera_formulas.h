#pragma once

#include <array>

#include "base/dual.h"
#include "base/row_pair.h"
#include "calibration/ap_formulas.h"
#include "geometry/vec3.h"
#include "sensors/inner_orientation.h"

// The way between image coordinates and reduced camera vectors, for one point or for several side
// by side: T is a number or Lanes. Sets is what calls visit(terms) for the parameter sets of the
// camera, in the order of their attachment.

namespace vorn {

// Sum of the corrections (dx, dy) of all sets at a reduced image point.
template <class T, class Sets>
std::array<T, 2> corrections_at(const Sets& sets, const Vec3Of<T>& point) {
  std::array<T, 2> sum{0.0, 0.0};
  sets.for_each([&](const APTerms& set) {
    const std::array<T, 2> correction = correction_of(set, point);
    sum[0] += correction[0];
    sum[1] += correction[1];
  });
  return sum;
}

// Reduced, corrected camera vector (x, y, -c) of image coordinates.
template <class T, class Sets>
Vec3Of<T> reduced(const InnerOrientation& camera, const Sets& sets, const std::array<T, 2>& image) {
  Vec3Of<T> point{image[0] - camera.xp, image[1] - camera.yp, -camera.c};
  const std::array<T, 2> correction = corrections_at(sets, point);
  point[0] -= correction[0];
  point[1] -= correction[1];
  return point;
}

// Image coordinates of a reduced point.
template <class T, class Sets>
std::array<T, 2> completed(const InnerOrientation& camera, const Sets& sets,
                           const Vec3Of<T>& point) {
  const std::array<T, 2> correction = corrections_at(sets, point);
  return {camera.xp + point[0] + correction[0], camera.yp + point[1] + correction[1]};
}

// The same as functions of x and y of the point; the derivatives with respect to the parameters of
// all sets, one after the other, go into two rows.
template <class T, class Sets, class Row>
std::array<Dual<T>, 2> linearised(const InnerOrientation& camera, const Sets& sets,
                                  const Vec3Of<T>& point, RowPair<Row> rows) {
  const std::array<Dual<T>, 2> image{Dual<T>(camera.xp + point[0], 1.0, 0.0),
                                     Dual<T>(camera.yp + point[1], 0.0, 1.0)};
  std::array<Dual<T>, 2> correction{0.0, 0.0};
  sets.for_each([&](const APTerms& set) {
    linearise_set(set, point, rows, correction);
    rows = rows.from(set.num_ap);
  });
  return {image[0] + correction[0], image[1] + correction[1]};
}

// From derivatives of the reduced image point to those of the measured one, for columns that stand
// one after the other: the chain rule, the image coordinates being functions of the reduced ones.
template <class T, class Row>
void apply_chain_rule(const std::array<Dual<T>, 2>& image, const RowPair<Row>& rows,
                      std::int32_t count) {
  for (std::int32_t k = 0; k < count; ++k) {
    const T x = rows.x[k];
    const T y = rows.y[k];
    rows.x[k] = image[0].dx * x + image[0].dy * y;
    rows.y[k] = image[1].dx * x + image[1].dy * y;
  }
}

// The misclosure of an observation equation: measured minus computed image coordinates [m]. The
// residual is its negative.
template <class T>
std::array<T, 2> misclosure_of(const std::array<T, 2>& measured, const std::array<T, 2>& computed) {
  return {measured[0] - computed[0], measured[1] - computed[1]};
}

}  // namespace vorn
