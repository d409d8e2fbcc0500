// Object points that are not those of the images: control of another project, identifiers that are
// shifted by a line, or orientations that have nothing to do with them.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/start_rays.h"

namespace vorn {
namespace {

constexpr double kFits = 0.1;       // median residual, in parts of the half extent
constexpr double kStandsOut = 5.0;  // times the median of the other points
constexpr double kNowhere = 0.5;    // median residual of approximations that fit nowhere
constexpr std::size_t kFewest = 3;  // control points
constexpr std::size_t kFewestRays = 8;

// Linear models need no approximations.
bool is_oriented(const StartRay& ray) {
  return dynamic_cast<const ExtOrientation*>(ray.image->geometry) != nullptr;
}

bool is_control(const StartRay& ray) {
  return ray.object != nullptr && ray.object->type == PointType::control;
}

void report(const ObjectPoint& first, std::string message, std::string help,
            FindingListener& findings) {
  add_finding(findings, FindingCode::gross_start, {&first, 0}, {"object-point", first.id, {}, {}},
              std::move(message), std::move(help));
}

// Control that misses the rays of images which agree on all other points.
bool find_control(const StartFit& fit, FindingListener& findings) {
  std::vector<double> others;
  std::map<const ObjectPoint*, double> least;
  const ObjectPoint* first = nullptr;
  for (std::size_t i = 0; i < fit.rays.size(); ++i) {
    if (!is_oriented(fit.rays[i])) continue;
    if (!is_control(fit.rays[i])) {
      others.push_back(fit.residuals[i]);
      continue;
    }
    double& of_point = least.try_emplace(fit.rays[i].object, HUGE_VAL).first->second;
    of_point = std::min(of_point, fit.residuals[i]);
  }
  const std::size_t num_others = others.size();
  const double typical = median(std::move(others));
  if (num_others < kFewestRays || !(typical < kFits * fit.extent)) return false;
  const double limit = std::max(kStandsOut * typical, kFits * fit.extent);
  std::size_t missed = 0;
  for (const StartRay& ray : fit.rays) {
    if (!is_control(ray) || !is_oriented(ray)) continue;
    double& of_point = least.at(ray.object);
    if (!(of_point > limit)) continue;
    of_point = 0.0;
    if (missed++ == 0) first = ray.object;
  }
  if (missed < kFewest || 2 * missed < least.size()) return false;
  report(*first,
         std::to_string(missed) + " of " + std::to_string(least.size()) +
             " control points miss the rays of images that agree on the other points, " +
             printable(first->id) + " first",
         "look whether the control is of this project, in its system, and under its identifiers, "
         "and whether c is that of the camera",
         findings);
  return true;
}

}  // namespace

bool find_foreign_control(const StartFit& fit, FindingListener& findings) {
  std::vector<double> residuals;
  const StartRay* first_ray = nullptr;  // to control, or else to any point
  for (std::size_t i = 0; i < fit.num_given; ++i) {
    const StartRay& ray = fit.rays[i];
    if (!is_oriented(ray)) continue;
    residuals.push_back(fit.residuals[i]);
    if (first_ray == nullptr || (is_control(ray) && !is_control(*first_ray))) first_ray = &ray;
  }
  if (residuals.size() < kFewestRays) return false;
  if (find_control(fit, findings)) return true;
  if (median(std::move(residuals)) < kNowhere * fit.extent_of_given) return false;
  const ObjectPoint& first = *first_ray->object;
  report(
      first,
      "most object points are nowhere near their image points, " + printable(first.id) + " first",
      "look whether orientations and object points are of one project, in one system, and under "
      "the identifiers of the image points",
      findings);
  return true;
}

}  // namespace vorn
