#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "geometry/vec3.h"

// A reconstruction as other programs hold it: what all formats are read into and most are written
// from. Cameras, frames and pixels stay those of the format, so that both projections can be
// compared.

namespace vorn::exchange {

using Pixel = std::array<double, 2>;

// Axes of a camera. Both project P = R X + t onto the plane at distance 1:
//
//   ahead    x right, y down, looks along +z:   u = Px/Pz,   v = Py/Pz
//   behind   x right, y up, looks along -z:     u = -Px/Pz,  v = -Py/Pz
enum class Axes { ahead, behind };

// No image is larger; a side beyond this is damage [px].
constexpr std::uint32_t kMaxPixels = 1'000'000;

// Parameters of a lens that an adjustment may free; bits.
enum class Lens : std::uint32_t {
  none = 0,
  f = 1U << 0U,
  cx = 1U << 1U,
  cy = 1U << 2U,
  k1 = 1U << 3U,
  k2 = 1U << 4U,
  k3 = 1U << 5U,
  p1 = 1U << 6U,
  p2 = 1U << 7U,
  b1 = 1U << 8U,  // difference of the focal lengths in x and y
  b2 = 1U << 9U,  // shear
  pp = cx | cy,
};
constexpr Lens operator|(Lens a, Lens b) {
  return static_cast<Lens>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr bool has(Lens set, Lens part) {
  return (static_cast<std::uint32_t>(set) & static_cast<std::uint32_t>(part)) != 0;
}

// The lens of the common formats (Brown 1971, in the form of OpenCV), with r^2 = u^2 + v^2:
//
//   u_d = u (1 + k1 r^2 + k2 r^4 + k3 r^6) + 2 p1 u v + p2 (r^2 + 2 u^2)      x = fx u_d + cx
//   v_d = v (1 + k1 r^2 + k2 r^4 + k3 r^6) + p1 (r^2 + 2 v^2) + 2 p2 u v      y = fy v_d + cy
struct SourceCamera {
  std::string id;     // a word
  std::string model;  // name of the model in the source
  std::int32_t columns = 0;
  std::int32_t rows = 0;  // both 0 where the format holds no size
  double fx = 0.0;        // [px]
  double fy = 0.0;
  double cx = 0.0;
  double cy = 0.0;
  std::array<double, 3> k{};
  std::array<double, 2> p{};
  Lens own = Lens::none;  // what the model itself adjusts
};

// Image of a direction (u, v) [px].
Pixel image_of(const SourceCamera& camera, double u, double v);

// Rotation from object space to the camera, with the translation or the projection centre,
// whichever the format holds.
struct Pose {
  Mat3 r{};
  Vec3 offset{};
  bool is_centre = false;

  Vec3 camera_from_object(const Vec3& x) const {
    return is_centre ? r * (x - offset) : r * x + offset;
  }
  Vec3 centre() const { return is_centre ? offset : -transposed_times(r, offset); }
};

struct SourceRay {
  std::int32_t point = 0;  // index in Reconstruction::points
  Pixel xy{};
};

struct SourceImage {
  std::string name;  // a word; as in the source, blanks replaced
  std::int32_t camera = 0;
  Pose pose;
  std::vector<SourceRay> rays;
};

struct SourcePoint {
  std::string id;  // a word
  Vec3 xyz{};
};

// What did not come along, and why.
struct LeftOut {
  std::int64_t duplicates = 0;  // second measurements of a point in one image
  std::int64_t large_errors = 0;
  std::int64_t points_at_centre = 0;
  std::int64_t rays_at_centre = 0;
  std::int64_t points_of_few_rays = 0;
  std::int64_t rays_of_few = 0;
};

struct Reconstruction {
  std::string format;
  Axes axes = Axes::ahead;
  double first_pixel = 0.0;  // coordinate of the centre of the first pixel
  std::vector<SourceCamera> cameras;
  std::vector<SourceImage> images;
  std::vector<SourcePoint> points;
  LeftOut left_out;
  std::vector<std::string> notes;  // sentences for the summary

  bool has_sizes() const { return axes == Axes::ahead; }
  std::int64_t count_rays() const;
};

// Image of a point by the source's own formulas [px], and its depth along the viewing direction.
struct Projection {
  Pixel xy{};
  double depth = 0.0;
};
Projection project(const Reconstruction& model, const SourceImage& image, const Vec3& x);

// Median of the absolute depths of all rays; 0 without rays.
double median_depth(const Reconstruction& model);

// Leaves out, in this order: all but the first of several measurements of a point in one image; the
// points that lie at a projection centre; rays whose residual exceeds `max_error` [px], when that
// is greater than 0; points with fewer than two rays. Counts what goes in `left_out`.
void leave_out_unusable(Reconstruction& model, double max_error);

// Rotation matrix of a quaternion (w, x, y, z), which is made of unit length first.
Mat3 rotation_of_quaternion(const std::array<double, 4>& q);
// Rotation matrix of a rotation vector (Rodrigues 1840).
Mat3 rotation_of_vector(const Vec3& v);
// The other way: a quaternion of unit length with w >= 0, a vector no longer than pi.
std::array<double, 4> quaternion_of(const Mat3& r);
Vec3 vector_of(const Mat3& r);
// Whether R'R = I to within the tolerance and det R > 0.
bool is_rotation(const Mat3& r, double tolerance);

}  // namespace vorn::exchange
