#include "app/exchange/similarity.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vorn::exchange {
namespace {

using Mat4 = std::array<std::array<double, 4>, 4>;

// Points that spread less than this share of their extent across a line lie on it.
constexpr double kOnLine = 1e-3;

Vec3 mean_of(const std::vector<Vec3>& points) {
  Vec3 sum{};
  for (const Vec3& point : points) sum = sum + point;
  return (1.0 / static_cast<double>(points.size())) * sum;
}

// Eigenvector of the largest eigenvalue of a symmetric matrix, by cyclic Jacobi rotations (Jacobi
// 1846).
std::array<double, 4> largest_eigenvector(Mat4 a) {
  Mat4 v{};
  for (std::size_t i = 0; i < 4; ++i) v[i][i] = 1.0;
  for (int sweep = 0; sweep < 50; ++sweep) {
    for (std::size_t p = 0; p < 3; ++p) {
      for (std::size_t q = p + 1; q < 4; ++q) {
        if (a[p][q] == 0.0) continue;
        const double theta = 0.5 * std::atan2(2.0 * a[p][q], a[p][p] - a[q][q]);
        const double c = std::cos(theta);
        const double s = std::sin(theta);
        for (auto* m : {&a, &v}) {
          for (auto& row : *m) {
            const double x = row[p];
            row[p] = c * x + s * row[q];
            row[q] = c * row[q] - s * x;
          }
        }
        for (std::size_t k = 0; k < 4; ++k) {
          const double x = a[p][k];
          a[p][k] = c * x + s * a[q][k];
          a[q][k] = c * a[q][k] - s * x;
        }
      }
    }
  }
  std::size_t largest = 0;
  for (std::size_t i = 1; i < 4; ++i) {
    if (a[i][i] > a[largest][largest]) largest = i;
  }
  return {v[0][largest], v[1][largest], v[2][largest], v[3][largest]};
}

// Whether all points lie near the line through the two that are far apart.
bool on_a_line(const std::vector<Vec3>& points) {
  const auto farthest_from = [&](const Vec3& start) {
    return *std::max_element(points.begin(), points.end(), [&](const Vec3& a, const Vec3& b) {
      return length(a - start) < length(b - start);
    });
  };
  const Vec3 a = farthest_from(points.front());
  const Vec3 line = farthest_from(a) - a;
  const double extent = length(line);
  double across = 0.0;
  for (const Vec3& point : points) {
    across = std::max(across, length(cross(line, point - a)) / extent);
  }
  return !(across > kOnLine * extent);
}

}  // namespace

bool find_similarity(const std::vector<Vec3>& from, const std::vector<Vec3>& to,
                     Similarity& result) {
  if (from.size() < 3 || on_a_line(from) || on_a_line(to)) return false;
  const Vec3 mean_from = mean_of(from);
  const Vec3 mean_to = mean_of(to);
  Mat3 s{};
  double square_from = 0.0;
  double square_to = 0.0;
  for (std::size_t n = 0; n < from.size(); ++n) {
    const Vec3 a = from[n] - mean_from;
    const Vec3 b = to[n] - mean_to;
    square_from += dot(a, a);
    square_to += dot(b, b);
    for (std::size_t i = 0; i < 3; ++i) s[i] = s[i] + a[i] * b;
  }
  const Mat4 n = {
      {{s[0][0] + s[1][1] + s[2][2], s[1][2] - s[2][1], s[2][0] - s[0][2], s[0][1] - s[1][0]},
       {s[1][2] - s[2][1], s[0][0] - s[1][1] - s[2][2], s[0][1] + s[1][0], s[2][0] + s[0][2]},
       {s[2][0] - s[0][2], s[0][1] + s[1][0], s[1][1] - s[0][0] - s[2][2], s[1][2] + s[2][1]},
       {s[0][1] - s[1][0], s[2][0] + s[0][2], s[1][2] + s[2][1], s[2][2] - s[0][0] - s[1][1]}}};
  result.r = rotation_of_quaternion(largest_eigenvector(n));
  // The symmetric scale, which is the inverse of that in the other direction.
  result.scale = std::sqrt(square_to / square_from);
  result.shift = mean_to - result.scale * (result.r * mean_from);
  return true;
}

void transform(Reconstruction& model, const Similarity& similarity) {
  for (SourcePoint& point : model.points) point.xyz = similarity(point.xyz);
  for (SourceImage& image : model.images) {
    const Vec3 centre = similarity(image.pose.centre());
    Mat3 r{};
    for (std::size_t i = 0; i < 3; ++i) r[i] = similarity.r * image.pose.r[i];
    image.pose = {r, centre, true};
  }
}

}  // namespace vorn::exchange
