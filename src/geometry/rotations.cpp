#include "geometry/rotations.h"

#include <cmath>

namespace vorn {
namespace {

// Sines and cosines of three angles in parameter order.
struct Trig {
  explicit Trig(const Vec3& angles)
      : s{std::sin(angles[0]), std::sin(angles[1]), std::sin(angles[2])},
        c{std::cos(angles[0]), std::cos(angles[1]), std::cos(angles[2])} {}
  Vec3 s;
  Vec3 c;
};

}  // namespace

Mat3 pok_rot::matrix_from_params(const Vec3& angles) {
  const Trig t(angles);
  const auto [sf, sw, sk] = t.s;
  const auto [cf, cw, ck] = t.c;
  return {{{cf * ck + sf * sw * sk, sf * sw * ck - cf * sk, sf * cw},
           {cw * sk, cw * ck, -sw},
           {cf * sw * sk - sf * ck, cf * sw * ck + sf * sk, cf * cw}}};
}

Vec3 pok_rot::params_from_matrix(const Mat3& r) {
  return {std::atan2(r[0][2], r[2][2]), std::asin(-r[1][2]), std::atan2(r[1][0], r[1][1])};
}

// Object-space axes: Y, then X turned by phi, then the image's own z axis.
Mat3 pok_rot::image_axes(const Vec3& angles) {
  const Trig t(angles);
  const double sw = t.s[1];
  const double cw = t.c[1];
  const double sk = t.s[2];
  const double ck = t.c[2];
  return {{{cw * sk, cw * ck, -sw}, {ck, -sk, 0}, {0, 0, 1}}};
}

Mat3 opk_rot::matrix_from_params(const Vec3& angles) {
  const Trig t(angles);
  const auto [sw, sf, sk] = t.s;
  const auto [cw, cf, ck] = t.c;
  return {{{cf * ck, -cf * sk, sf},
           {cw * sk + sw * sf * ck, cw * ck - sw * sf * sk, -sw * cf},
           {sw * sk - cw * sf * ck, sw * ck + cw * sf * sk, cw * cf}}};
}

Vec3 opk_rot::params_from_matrix(const Mat3& r) {
  return {std::atan2(-r[1][2], r[2][2]), std::asin(r[0][2]), std::atan2(-r[0][1], r[0][0])};
}

// Object-space axes: X, then Y turned by omega, then the image's own z axis.
Mat3 opk_rot::image_axes(const Vec3& angles) {
  const Trig t(angles);
  const double sf = t.s[1];
  const double cf = t.c[1];
  const double sk = t.s[2];
  const double ck = t.c[2];
  return {{{cf * ck, -cf * sk, sf}, {sk, ck, 0}, {0, 0, 1}}};
}

Mat3 opk_fix::matrix_from_params(const Vec3& angles) {
  return transposed(opk_rot::matrix_from_params(angles));
}

Vec3 opk_fix::params_from_matrix(const Mat3& r) {
  return opk_rot::params_from_matrix(transposed(r));
}

// U = Rx(omega) Ry(phi) Rz(kappa) d turns about axes of image space: x, then y and z turned by what
// stands before them; clockwise, hence the signs.
Mat3 opk_fix::image_axes(const Vec3& angles) {
  const Trig t(angles);
  const double sw = t.s[0];
  const double cw = t.c[0];
  const double sf = t.s[1];
  const double cf = t.c[1];
  return {{{-1, 0, 0}, {0, -cw, -sw}, {-sf, sw * cf, -cw * cf}}};
}

// The rows of pok_rot in the order 0, -2, 1.
Mat3 australis::matrix_from_params(const Vec3& angles) {
  const Trig t(angles);
  const auto [sa, se, sr] = t.s;
  const auto [ca, ce, cr] = t.c;
  return {{{cr * ca + se * sa * sr, se * sa * cr - ca * sr, ce * sa},
           {cr * sa - ca * se * sr, -sa * sr - ca * se * cr, -ca * ce},
           {sr * ce, cr * ce, -se}}};
}

Vec3 australis::params_from_matrix(const Mat3& r) {
  return {std::atan2(r[0][2], -r[1][2]), -std::asin(r[2][2]), std::atan2(r[2][0], r[2][1])};
}

// The fixed turn by 90 degrees stands on the object side and leaves image space alone.
Mat3 australis::image_axes(const Vec3& angles) { return pok_rot::image_axes(angles); }

Mat3 quaternion::matrix_from_params(const Params& q) {
  const auto [q0, q1, q2, q3] = q;
  const double s0 = q0 * q0;
  const double s1 = q1 * q1;
  const double s2 = q2 * q2;
  const double s3 = q3 * q3;
  return {{{s0 + s1 - s2 - s3, 2 * (q1 * q2 - q0 * q3), 2 * (q1 * q3 + q0 * q2)},
           {2 * (q1 * q2 + q0 * q3), s0 - s1 + s2 - s3, 2 * (q2 * q3 - q0 * q1)},
           {2 * (q1 * q3 - q0 * q2), 2 * (q2 * q3 + q0 * q1), s0 - s1 - s2 + s3}}};
}

quaternion::Params quaternion::params_from_matrix(const Mat3& r) {
  const double q0 = 0.5 * std::sqrt(r[0][0] + r[1][1] + r[2][2] + 1);
  if (q0 != 0) {
    return {q0, (r[2][1] - r[1][2]) / (4 * q0), (r[0][2] - r[2][0]) / (4 * q0),
            (r[1][0] - r[0][1]) / (4 * q0)};
  }
  // Half-turn: only the products a = q1 q2, b = q1 q3, c = q2 q3 are left.
  const double a = (r[1][0] + r[0][1]) / 4;
  const double b = (r[2][0] + r[0][2]) / 4;
  const double c = (r[2][1] + r[1][2]) / 4;
  if (a != 0) {
    const double q3 = std::sqrt(b * c / a);
    return {q0, b / q3, c / q3, q3};
  }
  if (b != 0) {
    const double q2 = std::sqrt(c * a / b);
    return {q0, a / q2, q2, c / q2};
  }
  if (c != 0) {
    const double q1 = std::sqrt(b * a / c);
    return {q0, q1, a / q1, b / q1};
  }
  if (r[0][0] > 0) return {q0, 1, 0, 0};
  if (r[1][1] > 0) return {q0, 0, 1, 0};
  return {q0, 0, 0, 1};
}

std::array<Mat3, 4> quaternion::matrix_derivs(const Params& q) {
  const double q0 = 2 * q[0];
  const double q1 = 2 * q[1];
  const double q2 = 2 * q[2];
  const double q3 = 2 * q[3];
  return {Mat3{{{q0, -q3, q2}, {q3, q0, -q1}, {-q2, q1, q0}}},
          Mat3{{{q1, q2, q3}, {q2, -q1, -q0}, {q3, q0, -q1}}},
          Mat3{{{-q2, q1, q0}, {q1, q2, q3}, {-q0, q3, -q2}}},
          Mat3{{{-q3, -q0, q1}, {q0, -q3, q2}, {q1, q2, q3}}}};
}

}  // namespace vorn
