#include "app/exchange/reconstruction.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vorn::exchange {
namespace {

// A point this near to a projection centre, in median depths, cannot be adjusted.
constexpr double kAtCentre = 1e-6;

void leave_out_duplicates(Reconstruction& model) {
  std::vector<std::int32_t> last_image(model.points.size(), -1);
  std::int32_t number = 0;
  for (SourceImage& image : model.images) {
    const auto is_second = [&](const SourceRay& ray) {
      return std::exchange(last_image[static_cast<std::size_t>(ray.point)], number) == number;
    };
    model.left_out.duplicates += static_cast<std::int64_t>(std::erase_if(image.rays, is_second));
    ++number;
  }
}

// Removes the rays of the marked points and returns their number.
std::int64_t remove_rays_of(Reconstruction& model, const std::vector<char>& marked) {
  std::int64_t removed = 0;
  for (SourceImage& image : model.images) {
    removed += static_cast<std::int64_t>(std::erase_if(image.rays, [&](const SourceRay& ray) {
      return marked[static_cast<std::size_t>(ray.point)] != 0;
    }));
  }
  return removed;
}

void leave_out_points_at_centres(Reconstruction& model) {
  const double limit = kAtCentre * median_depth(model);
  std::vector<char> at_centre(model.points.size(), 0);
  for (const SourceImage& image : model.images) {
    for (const SourceRay& ray : image.rays) {
      const auto point = static_cast<std::size_t>(ray.point);
      const Vec3 p = image.pose.camera_from_object(model.points[point].xyz);
      if (!(std::abs(p[2]) > limit)) at_centre[point] = 1;
    }
  }
  model.left_out.points_at_centre = std::count(at_centre.begin(), at_centre.end(), 1);
  if (model.left_out.points_at_centre == 0) return;
  model.left_out.rays_at_centre = remove_rays_of(model, at_centre);
}

void leave_out_large_errors(Reconstruction& model, double max_error) {
  for (SourceImage& image : model.images) {
    const auto is_large = [&](const SourceRay& ray) {
      const Pixel computed =
          project(model, image, model.points[static_cast<std::size_t>(ray.point)].xyz).xy;
      return !(std::hypot(computed[0] - ray.xy[0], computed[1] - ray.xy[1]) <= max_error);
    };
    model.left_out.large_errors += static_cast<std::int64_t>(std::erase_if(image.rays, is_large));
  }
}

// Drops the points that fewer than two images see, and numbers the others anew.
void leave_out_few_rays(Reconstruction& model) {
  std::vector<std::int32_t> rays(model.points.size(), 0);
  for (const SourceImage& image : model.images) {
    for (const SourceRay& ray : image.rays) ++rays[static_cast<std::size_t>(ray.point)];
  }
  std::vector<char> few(model.points.size());
  std::vector<std::int32_t> new_number(model.points.size());
  std::size_t kept = 0;
  for (std::size_t i = 0; i < model.points.size(); ++i) {
    few[i] = rays[i] < 2 ? 1 : 0;
    new_number[i] = static_cast<std::int32_t>(kept);
    if (few[i] != 0) continue;
    if (kept != i) model.points[kept] = std::move(model.points[i]);
    ++kept;
  }
  // Points at a projection centre have lost their rays by now and are counted there.
  model.left_out.points_of_few_rays =
      static_cast<std::int64_t>(model.points.size() - kept) - model.left_out.points_at_centre;
  if (kept == model.points.size()) return;
  model.left_out.rays_of_few = remove_rays_of(model, few);
  model.points.resize(kept);
  for (SourceImage& image : model.images) {
    for (SourceRay& ray : image.rays) ray.point = new_number[static_cast<std::size_t>(ray.point)];
  }
}

}  // namespace

std::int64_t Reconstruction::count_rays() const {
  std::int64_t count = 0;
  for (const SourceImage& image : images) count += static_cast<std::int64_t>(image.rays.size());
  return count;
}

Pixel image_of(const SourceCamera& camera, double u, double v) {
  const double r2 = u * u + v * v;
  const double radial = 1.0 + r2 * (camera.k[0] + r2 * (camera.k[1] + r2 * camera.k[2]));
  const auto [p1, p2] = camera.p;
  const double ud = u * radial + 2.0 * p1 * u * v + p2 * (r2 + 2.0 * u * u);
  const double vd = v * radial + p1 * (r2 + 2.0 * v * v) + 2.0 * p2 * u * v;
  return {camera.fx * ud + camera.cx, camera.fy * vd + camera.cy};
}

Projection project(const Reconstruction& model, const SourceImage& image, const Vec3& x) {
  const Vec3 point = image.pose.camera_from_object(x);
  const double depth = model.axes == Axes::ahead ? point[2] : -point[2];
  const SourceCamera& camera = model.cameras[static_cast<std::size_t>(image.camera)];
  return {image_of(camera, point[0] / depth, point[1] / depth), depth};
}

double median_depth(const Reconstruction& model) {
  std::vector<double> depths;
  depths.reserve(static_cast<std::size_t>(model.count_rays()));
  for (const SourceImage& image : model.images) {
    for (const SourceRay& ray : image.rays) {
      const Vec3& x = model.points[static_cast<std::size_t>(ray.point)].xyz;
      depths.push_back(std::abs(image.pose.camera_from_object(x)[2]));
    }
  }
  if (depths.empty()) return 0.0;
  const auto middle = depths.begin() + static_cast<std::ptrdiff_t>(depths.size() / 2);
  std::nth_element(depths.begin(), middle, depths.end());
  return *middle;
}

void leave_out_unusable(Reconstruction& model, double max_error) {
  leave_out_duplicates(model);
  leave_out_points_at_centres(model);
  if (max_error > 0.0) leave_out_large_errors(model, max_error);
  leave_out_few_rays(model);
}

Mat3 rotation_of_quaternion(const std::array<double, 4>& q) {
  // The largest element is taken out, so that no square over- or underflows.
  double largest = 0.0;
  for (const double value : q) largest = std::max(largest, std::abs(value));
  double sum = 0.0;
  for (const double value : q) sum += (value / largest) * (value / largest);
  const double norm = std::sqrt(sum);
  const double w = q[0] / largest / norm;
  const double x = q[1] / largest / norm;
  const double y = q[2] / largest / norm;
  const double z = q[3] / largest / norm;
  return {{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
           {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
           {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}}};
}

Mat3 rotation_of_vector(const Vec3& v) {
  // R = cos a I + sin a [n]x + (1 - cos a) n n', with a = |v|, n = v/a.
  const double a = length(v);
  if (a == 0.0) return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  const Vec3 n = (1.0 / a) * v;
  const double s = std::sin(a);
  const double c = std::cos(a);
  const double d = 2.0 * std::sin(0.5 * a) * std::sin(0.5 * a);
  return {{{c + d * n[0] * n[0], d * n[0] * n[1] - s * n[2], d * n[0] * n[2] + s * n[1]},
           {d * n[1] * n[0] + s * n[2], c + d * n[1] * n[1], d * n[1] * n[2] - s * n[0]},
           {d * n[2] * n[0] - s * n[1], d * n[2] * n[1] + s * n[0], c + d * n[2] * n[2]}}};
}

std::array<double, 4> quaternion_of(const Mat3& r) {
  // From the largest of the four elements, which keeps all digits (Shepperd 1978).
  const double trace = r[0][0] + r[1][1] + r[2][2];
  const std::array<double, 4> sums = {1 + trace, 1 - trace + 2 * r[0][0], 1 - trace + 2 * r[1][1],
                                      1 - trace + 2 * r[2][2]};
  const double a = r[2][1] - r[1][2];
  const double b = r[0][2] - r[2][0];
  const double c = r[1][0] - r[0][1];
  const double d = r[1][0] + r[0][1];
  const double e = r[0][2] + r[2][0];
  const double f = r[2][1] + r[1][2];
  const std::array<std::array<double, 4>, 4> rows = {
      {{sums[0], a, b, c}, {a, sums[1], d, e}, {b, d, sums[2], f}, {c, e, f, sums[3]}}};
  const auto largest =
      static_cast<std::size_t>(std::max_element(sums.begin(), sums.end()) - sums.begin());
  std::array<double, 4> q = rows[largest];
  double norm = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  if (q[0] < 0.0) norm = -norm;
  for (double& value : q) value /= norm;
  return q;
}

Vec3 vector_of(const Mat3& r) {
  const auto [w, x, y, z] = quaternion_of(r);
  const Vec3 v{x, y, z};
  const double sine = length(v);
  const double factor = sine > 0.0 ? 2.0 * std::atan2(sine, w) / sine : 2.0;
  return factor * v;
}

bool is_rotation(const Mat3& r, double tolerance) {
  const Mat3 columns = transposed(r);
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      const double expected = i == j ? 1.0 : 0.0;
      if (!(std::abs(dot(columns[i], columns[j]) - expected) <= tolerance)) return false;
    }
  }
  return dot(cross(columns[0], columns[1]), columns[2]) > 0.0;
}

}  // namespace vorn::exchange
