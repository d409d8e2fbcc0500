// Object points that are not those of the images: control of another project, identifiers that are
// shifted by a line, or orientations that have nothing to do with them.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/start_rays.h"
#include "driver/bundle_project.h"

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
bool find_control(const std::vector<StartRay>& rays, FindingListener& findings) {
  std::vector<double> others;
  std::map<const ObjectPoint*, double> least;
  const ObjectPoint* first = nullptr;
  for (const StartRay& ray : rays) {
    const double r = residual(ray);
    if (!is_control(ray)) {
      others.push_back(r);
      continue;
    }
    double& of_point = least.try_emplace(ray.object, HUGE_VAL).first->second;
    of_point = std::min(of_point, r);
  }
  const double extent = extent_of(rays);
  const double typical = median(others);
  if (others.size() < kFewestRays || !(typical < kFits * extent)) return false;
  const double limit = std::max(kStandsOut * typical, kFits * extent);
  std::size_t missed = 0;
  for (const StartRay& ray : rays) {
    if (!is_control(ray)) continue;
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
         "look whether the control is of this project, in its system, and under its identifiers",
         findings);
  return true;
}

}  // namespace

bool find_foreign_control(const BundleProject& project, const std::vector<StartRay>& given,
                          FindingListener& findings) {
  std::vector<StartRay> rays;
  std::copy_if(given.begin(), given.end(), std::back_inserter(rays), is_oriented);
  if (rays.size() < kFewestRays) return false;
  std::vector<double> residuals;
  for (const StartRay& ray : rays) residuals.push_back(residual(ray));
  const bool nowhere = !(median(std::move(residuals)) < kNowhere * extent_of(rays));
  std::vector<StartRay> all = intersected_rays(project);
  all.insert(all.end(), rays.begin(), rays.end());
  if (find_control(all, findings)) return true;
  if (!nowhere) return false;
  const auto control = std::find_if(rays.begin(), rays.end(), is_control);
  const ObjectPoint& first = control != rays.end() ? *control->object : *rays.front().object;
  report(
      first,
      "most object points are nowhere near their image points, " + printable(first.id) + " first",
      "look whether orientations and object points are of one project, in one system, and under "
      "the identifiers of the image points",
      findings);
  return true;
}

}  // namespace vorn
