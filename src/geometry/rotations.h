#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "geometry/vec3.h"

// Rotation representations. R turns image space into object space: its columns are the image axes
// in object coordinates, U = R'(X - Xo) is the image-space vector of an object point. Angles are in
// radians; Rx, Ry, Rz below are counter-clockwise rotations about one axis:
//
//   Rx(a) = [1 0 0; 0 ca -sa; 0 sa ca]   Ry(a) = [ca 0 sa; 0 1 0; -sa 0 ca]
//   Rz(a) = [ca -sa 0; sa ca 0; 0 0 1]
//
// Each representation is a namespace with `matrix_from_params` and `params_from_matrix`. The latter
// returns principal values of atan2 and asin and takes no care of gimbal lock.
//
// The three-angle forms add `image_axes`: row p is the axis b of angle p in image space, with the
// sign that makes dU/dp = U x b. Since dR/dp = [a]x R for a rotation about the object-space axis a,
// that axis is b = R'a.

namespace vorn {

// One row of the catalogue of representations.
struct RotationForm {
  std::int32_t code;
  std::string_view keyword;
  std::string_view description;
  std::int32_t num_params;
};

// The catalogue, closed by a row without texts. Forms 3, 6, 7, 8 and 12 are implemented.
inline constexpr std::array<RotationForm, 15> kRotationForms = {{
    {0, "undef", "undefined", 0},
    {1, "rotation-matrix", "rotation matrix", 9},
    {2, "direction-cosines", "direction cosines", 9},
    {3, "angles-opk-fix", "angles, omega-phi-kappa, fixed axes, cw", 3},
    {4, "angles-opk-fix-ccw", "angles, omega-phi-kappa, fixed axes, ccw", 3},
    {5, "angles-pok-fix", "angles, phi-omega-kappa, fixed axes, ccw", 3},
    {6, "angles-opk-rot", "angles, omega-phi-kappa, rotated axes, ccw", 3},
    {7, "angles-pok-rot", "angles, phi-omega-kappa, rotated axes, ccw", 3},
    {8, "angles-australis", "angles australis parameters", 3},
    {9, "small-angles", "small angles", 3},
    {10, "upper-diag-elem", "upper diagonal elements", 3},
    {11, "rodrigues-matrix", "rodrigues matrix", 3},
    {12, "unit-quaternion", "unit quaternion", 4},
    {13, "rotation-about-line", "one rotation about a line", 4},
    {14, {}, {}, 0},
}};

// Phi, omega, kappa about rotated axes: R = Ry(phi) Rx(omega) Rz(kappa).
namespace pok_rot {
Mat3 matrix_from_params(const Vec3& angles);
Vec3 params_from_matrix(const Mat3& r);
Mat3 image_axes(const Vec3& angles);
}  // namespace pok_rot

// Omega, phi, kappa about rotated axes: R = Rx(omega) Ry(phi) Rz(kappa).
namespace opk_rot {
Mat3 matrix_from_params(const Vec3& angles);
Vec3 params_from_matrix(const Mat3& r);
Mat3 image_axes(const Vec3& angles);
}  // namespace opk_rot

// Omega, phi, kappa about fixed axes, clockwise: the transpose of opk_rot.
namespace opk_fix {
Mat3 matrix_from_params(const Vec3& angles);
Vec3 params_from_matrix(const Mat3& r);
Mat3 image_axes(const Vec3& angles);
}  // namespace opk_fix

// Azimuth, elevation, roll: R = Rx(90 deg) Ry(azimuth) Rx(elevation) Rz(roll).
namespace australis {
Mat3 matrix_from_params(const Vec3& angles);
Vec3 params_from_matrix(const Mat3& r);
Mat3 image_axes(const Vec3& angles);
}  // namespace australis

// Quaternion (q0 scalar part). The matrix is the quadratic form without division by the norm: |q|^2
// times a rotation.
namespace quaternion {
using Params = std::array<double, 4>;
Mat3 matrix_from_params(const Params& q);
// Neither normalised nor given a chosen sign; q0 >= 0.
Params params_from_matrix(const Mat3& r);
// dR/dq0 ... dR/dq3.
std::array<Mat3, 4> matrix_derivs(const Params& q);
}  // namespace quaternion

}  // namespace vorn
