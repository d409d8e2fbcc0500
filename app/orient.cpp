#include "app/orient.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <utility>

#include "geometry/ray_bundle.h"
#include "lsq/linalg/cholesky.h"

namespace vorn::app {
namespace {

// Rays agree with a point within this [rad]; a lens without calibration bends them by less.
constexpr double kAgreement = 0.03;
constexpr std::size_t kFewestPoints = 4;

struct Known {
  Vec3 direction;  // unit vector in the image
  Vec3 xyz;
};

// Roots of a4 x^4 + ... + a0 that are real, all at once (Durand 1960, Kerner 1966).
std::vector<double> real_roots(const std::array<double, 5>& a) {
  std::vector<double> roots;
  if (a[4] == 0.0) return roots;
  std::array<std::complex<double>, 4> x;
  for (std::size_t k = 0; k < 4; ++k) {
    x[k] = std::pow(std::complex<double>(0.4, 0.9), static_cast<int>(k));
  }
  constexpr int kIterations = 60;
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    for (std::size_t k = 0; k < 4; ++k) {
      std::complex<double> value = 1.0;
      for (std::size_t power = 4; power-- > 0;) value = value * x[k] + a[power] / a[4];
      for (std::size_t j = 0; j < 4; ++j) {
        if (j != k) value /= x[k] - x[j];
      }
      x[k] -= value;
    }
  }
  constexpr double kReal = 1e-4;  // double roots come in pairs that are nearly real
  for (const std::complex<double>& root : x) {
    if (std::abs(root.imag()) <= kReal * std::abs(root)) roots.push_back(root.real());
  }
  return roots;
}

// Axes along the first side and the normal of a triangle, as columns.
Mat3 axes_of(const Vec3& a, const Vec3& b, const Vec3& c) {
  const Vec3 x = unit(b - a);
  const Vec3 z = unit(cross(x, c - a));
  return transposed({x, z, cross(x, z)});
}

Mat3 product(const Mat3& a, const Mat3& b) {
  const Mat3 columns = transposed(b);
  return transposed({a * columns[0], a * columns[1], a * columns[2]});
}

// The orientations that three points allow (Grunert 1841, as in Haralick et al. 1994). With the
// distances s1, s2 = u s1, s3 = v s1 from the projection centre, the sides a, b, c opposite to the
// points 1, 2, 3 and the angles alpha, beta, gamma that they subtend, the laws of cosines give u
// from v, and a polynomial of the fourth degree for v.
void add_solutions(const Known& p1, const Known& p2, const Known& p3, std::vector<Orient>& all) {
  const double a2 = dot(p2.xyz - p3.xyz, p2.xyz - p3.xyz);
  const double b2 = dot(p1.xyz - p3.xyz, p1.xyz - p3.xyz);
  const double c2 = dot(p1.xyz - p2.xyz, p1.xyz - p2.xyz);
  const double cos_alpha = dot(p2.direction, p3.direction);
  const double cos_beta = dot(p1.direction, p3.direction);
  const double cos_gamma = dot(p1.direction, p2.direction);
  if (!(a2 > 0.0 && b2 > 0.0 && c2 > 0.0)) return;
  const double q = (a2 - c2) / b2;
  const double sum = (a2 + c2) / b2;
  const double alpha2 = cos_alpha * cos_alpha;
  const double beta2 = cos_beta * cos_beta;
  const double gamma2 = cos_gamma * cos_gamma;
  const std::array<double, 5> polynomial = {
      (1.0 + q) * (1.0 + q) - 4.0 * a2 / b2 * gamma2,
      4.0 * (-q * (1.0 + q) * cos_beta + 2.0 * a2 / b2 * gamma2 * cos_beta -
             (1.0 - sum) * cos_alpha * cos_gamma),
      2.0 * (q * q - 1.0 + 2.0 * q * q * beta2 + 2.0 * (b2 - c2) / b2 * alpha2 -
             4.0 * sum * cos_alpha * cos_beta * cos_gamma + 2.0 * (b2 - a2) / b2 * gamma2),
      4.0 * (q * (1.0 - q) * cos_beta - (1.0 - sum) * cos_alpha * cos_gamma +
             2.0 * c2 / b2 * alpha2 * cos_beta),
      (q - 1.0) * (q - 1.0) - 4.0 * c2 / b2 * alpha2};
  for (const double v : real_roots(polynomial)) {
    const double u = ((q - 1.0) * v * v - 2.0 * q * cos_beta * v + 1.0 + q) /
                     (2.0 * (cos_gamma - v * cos_alpha));
    const double s1 = std::sqrt(b2 / (1.0 + v * v - 2.0 * v * cos_beta));
    if (!(u > 0.0 && v > 0.0) || !std::isfinite(u * v * s1)) continue;
    const Vec3 q1 = s1 * p1.direction;
    const Mat3 img = axes_of(q1, u * s1 * p2.direction, v * s1 * p3.direction);
    const Mat3 obj = axes_of(p1.xyz, p2.xyz, p3.xyz);
    Orient solution;
    solution.rot_obj_from_img = product(obj, transposed(img));
    solution.centre = p1.xyz - solution.rot_obj_from_img * q1;
    all.push_back(solution);
  }
}

// Sine of the angle between a ray and the direction to its point; 1 behind the image.
double deviation(const Orient& orient, const Known& point) {
  const Vec3 u = transposed_times(orient.rot_obj_from_img, point.xyz - orient.centre);
  if (!(dot(u, point.direction) > 0.0)) return 1.0;
  return length(cross(u, point.direction)) / length(u);
}

struct Agreement {
  std::size_t count = 0;
  double sum = 0.0;  // of squares of those that agree, and of the limit for the others
};

Agreement agreement(const Orient& orient, const std::vector<Known>& points) {
  Agreement result;
  for (const Known& point : points) {
    const double d = deviation(orient, point);
    result.count += d < kAgreement ? 1U : 0U;
    result.sum += std::min(d * d, kAgreement * kAgreement);
  }
  return result;
}

// R turned by the small rotation w about the image axes.
Mat3 turned(const Mat3& r, const Vec3& w) {
  const double angle = length(w);
  if (angle == 0.0) return r;
  const Vec3 k = (1.0 / angle) * w;
  const double s = std::sin(angle);
  const double c = 1.0 - std::cos(angle);
  const Mat3 rotation = {{{1.0 - c * (k[1] * k[1] + k[2] * k[2]), c * k[0] * k[1] - s * k[2],
                           c * k[0] * k[2] + s * k[1]},
                          {c * k[0] * k[1] + s * k[2], 1.0 - c * (k[0] * k[0] + k[2] * k[2]),
                           c * k[1] * k[2] - s * k[0]},
                          {c * k[0] * k[2] - s * k[1], c * k[1] * k[2] + s * k[0],
                           1.0 - c * (k[0] * k[0] + k[1] * k[1])}}};
  return product(r, rotation);
}

// One Gauss-Newton step of x = Ux/Uz, y = Uy/Uz with U = R'(X - Xo): dU = -R' dXo + U x w for a
// rotation w about the image axes.
bool improve(Orient& orient, const std::vector<Known>& points) {
  constexpr std::int32_t kUnknowns = 6;
  Matrix n;
  n.resize(kUnknowns, kUnknowns);
  n.zero();
  Vector rhs(kUnknowns);
  rhs.zero();
  for (const Known& point : points) {
    if (deviation(orient, point) >= kAgreement) continue;
    const Vec3 u = transposed_times(orient.rot_obj_from_img, point.xyz - orient.centre);
    std::array<Vec3, kUnknowns> du;
    for (std::size_t k = 0; k < 3; ++k) {
      Vec3 axis{};
      axis[k] = 1.0;
      du[k] = -transposed_times(orient.rot_obj_from_img, axis);
      du[3 + k] = cross(u, axis);
    }
    for (std::size_t row = 0; row < 2; ++row) {
      std::array<double, kUnknowns> a{};
      const double value = u[row] / u[2];
      for (std::size_t k = 0; k < a.size(); ++k) a[k] = (du[k][row] - value * du[k][2]) / u[2];
      const double l = point.direction[row] / point.direction[2] - value;
      for (std::int32_t i = 0; i < kUnknowns; ++i) {
        rhs[i] += a[static_cast<std::size_t>(i)] * l;
        for (std::int32_t j = i; j < kUnknowns; ++j) {
          n[i][j] += a[static_cast<std::size_t>(i)] * a[static_cast<std::size_t>(j)];
        }
      }
    }
  }
  Vector p(kUnknowns);
  Vector x(kUnknowns);
  if (cholesky(n, p) != 0 || back_substitution(n, p, rhs, x) != 0) return false;
  for (std::int32_t k = 0; k < kUnknowns; ++k) {
    if (!std::isfinite(x[k])) return false;
  }
  orient.centre = orient.centre + Vec3{x[0], x[1], x[2]};
  orient.rot_obj_from_img = turned(orient.rot_obj_from_img, {x[3], x[4], x[5]});
  return true;
}

std::optional<Orient> resect_known(const std::vector<Known>& points) {
  if (points.size() < kFewestPoints) return std::nullopt;
  std::vector<Orient> solutions;
  const auto add = [&](std::size_t i, std::size_t j, std::size_t k) {
    add_solutions(points[i], points[j], points[k], solutions);
  };
  constexpr std::size_t kAllTriples = 10;
  const std::size_t n = points.size();
  if (n <= kAllTriples) {
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = i + 1; j < n; ++j) {
        for (std::size_t k = j + 1; k < n; ++k) add(i, j, k);
      }
    }
  } else {
    // Some hundred, of points far from one another in the list and near.
    constexpr std::size_t kTriples = 120;
    for (std::size_t t = 0; t < kTriples; ++t) {
      const std::size_t i = t % n;
      const std::size_t j = (i + 1 + t % (n / 3)) % n;
      const std::size_t k = (j + 1 + (t / 2) % (n / 3)) % n;
      add(i, j, k);
    }
  }
  std::optional<Orient> best;
  Agreement of_best;
  for (const Orient& solution : solutions) {
    const Agreement found = agreement(solution, points);
    if (found.count < kFewestPoints || (best && found.sum >= of_best.sum)) continue;
    best = solution;
    of_best = found;
  }
  if (!best || 2 * of_best.count < n) return std::nullopt;
  constexpr int kSteps = 5;
  for (int step = 0; step < kSteps; ++step) {
    Orient next = *best;
    if (!improve(next, points) || agreement(next, points).sum > agreement(*best, points).sum) break;
    best = next;
  }
  return best;
}

std::vector<Known> known_of(const std::vector<OrientRay>& rays,
                            const std::map<std::string, Vec3>& known) {
  std::vector<Known> points;
  for (const OrientRay& ray : rays) {
    const auto found = known.find(ray.point);
    if (found != known.end()) points.push_back({unit(ray.vector), found->second});
  }
  return points;
}

// What oriented images see of points that are not given.
std::map<std::string, Vec3> intersected(const std::vector<std::vector<OrientRay>>& images,
                                        const std::map<std::string, Vec3>& given,
                                        const std::vector<std::optional<Orient>>& oriented) {
  std::map<std::string, RayBundle> bundles;
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (!oriented[i]) continue;
    for (const OrientRay& ray : images[i]) {
      if (given.find(ray.point) != given.end()) continue;
      bundles[ray.point].add(oriented[i]->centre, oriented[i]->rot_obj_from_img * ray.vector);
    }
  }
  constexpr double kSmallestAngle = 0.02;
  std::map<std::string, Vec3> known = given;
  for (const auto& [id, bundle] : bundles) {
    const std::optional<Vec3> xyz = bundle.nearest_point(kSmallestAngle);
    if (xyz) known.emplace(id, *xyz);
  }
  return known;
}

}  // namespace

std::optional<Orient> resect(const std::vector<OrientRay>& rays,
                             const std::map<std::string, Vec3>& known) {
  return resect_known(known_of(rays, known));
}

void orient_all(const std::vector<std::vector<OrientRay>>& images,
                std::map<std::string, Vec3> known, std::vector<std::optional<Orient>>& oriented) {
  const std::map<std::string, Vec3> given = std::move(known);
  while (true) {
    known = intersected(images, given, oriented);
    // The best half of what can be oriented now; the others see more points afterwards.
    std::vector<std::pair<std::size_t, std::size_t>> next;  // known points, image
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (oriented[i]) continue;
      const std::size_t count = known_of(images[i], known).size();
      if (count >= kFewestPoints) next.emplace_back(count, i);
    }
    std::stable_sort(next.begin(), next.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::size_t done = 0;
    for (const auto& [count, image] : next) {
      if (done > 0 && 2 * done >= next.size()) break;
      oriented[image] = resect(images[image], known);
      done += oriented[image] ? 1U : 0U;
    }
    if (done == 0) return;
  }
}

}  // namespace vorn::app
