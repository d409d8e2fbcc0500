// What stands out from the start residuals of all others: images, points and single measurements.
// Points without coordinates take part with those that their rays give them.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/start_rays.h"
#include "driver/bundle_project.h"

namespace vorn {
namespace {

constexpr double kStandsOut = 10.0;  // times the median of all residuals
constexpr double kVisible = 0.1;     // part of the half extent of the measurements
constexpr double kAlone = 4.0;       // times the residuals of its image
constexpr std::size_t kMostListed = 10;
constexpr std::size_t kFewest = 3;       // images or points, to tell one from the others
constexpr std::size_t kRaysToAgree = 3;  // so that one may be wrong beside the others

using Rays = std::vector<StartRay>;

class GrossErrors {
 public:
  GrossErrors(const BundleProject& project, const Rays& given, FindingListener& findings)
      : project_(project), given_(given), findings_(findings) {}

  // First by the points whose coordinates are given: one wrong image spoils the intersections with
  // all others.
  void find() {
    for (const bool intersected : {false, true}) {
      do {
        gather(intersected);
      } while (removed_.size() < kMostListed && take_worst_image());
    }
    if (!stands_out_ || extent_ == 0.0) return;
    if (report_points()) return;
    report_measurements();
  }

 private:
  // The rays of the images that are left, and their residuals. Where no residual is beyond the
  // limit nothing stands out, and the residuals need no sorting by images and points.
  void gather(bool intersected) {
    rays_.clear();
    if (intersected) rays_ = intersected_rays(project_, removed_);
    for (const StartRay& ray : given_) {
      if (!removed_.contains(ray.image)) rays_.push_back(ray);
    }
    residuals_.clear();
    for (const StartRay& ray : rays_) residuals_.push_back(residual(ray));
    extent_ = extent_of(rays_);
    limit_ = std::max(kStandsOut * median(residuals_), kVisible * extent_);
    stands_out_ =
        std::any_of(residuals_.begin(), residuals_.end(), [this](double r) { return r > limit_; });
  }

  template <class Key, class KeyOf>
  std::map<Key, std::vector<double>> residuals_by(const KeyOf& key_of) const {
    std::map<Key, std::vector<double>> groups;
    for (std::size_t i = 0; i < rays_.size(); ++i) {
      groups[key_of(rays_[i])].push_back(residuals_[i]);
    }
    return groups;
  }

  std::string size_of(double r) const {
    if (r == HUGE_VAL) return "behind the camera";
    const double percent = std::min(100.0 * r / extent_, 1e6);
    return std::to_string(static_cast<int>(percent)) + " % of the half image";
  }

  bool take_worst_image() {
    if (!stands_out_) return false;
    const auto groups = residuals_by<const BundleImage*>([](const StartRay& r) { return r.image; });
    if (groups.size() < kFewest) return false;
    const BundleImage* worst = nullptr;
    double largest = limit_;
    for (const auto& [image, residuals] : groups) {
      const double middle = residuals.size() < 2 ? 0.0 : median(residuals);
      if (!(middle > largest)) continue;
      largest = middle;
      worst = image;
    }
    if (worst == nullptr) return false;
    removed_.insert(worst);
    add_finding(findings_, FindingCode::gross_start, {worst->geometry, 0},
                {"image", worst->id, {}, {}},
                "the start residuals of image " + printable(worst->id) +
                    " stand out from all others: " + size_of(largest),
                "compare its orientation and its measurements with those of its neighbours");
    return true;
  }

  bool report_points() {
    auto groups = residuals_by<const ObjectPoint*>([](const StartRay& r) { return r.object; });
    groups.erase(nullptr);
    if (groups.size() < kFewest) return false;
    std::vector<std::pair<double, const ObjectPoint*>> found;
    for (const auto& [object, residuals] : groups) {
      const double least = *std::min_element(residuals.begin(), residuals.end());
      const double middle = median(residuals);
      if (residuals.size() >= 2 && middle > limit_ && kAlone * least > limit_) {
        found.emplace_back(middle, object);
      }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    if (found.size() > kMostListed) found.resize(kMostListed);
    for (const auto& [r, point] : found) report_point(*point, r);
    return !found.empty();
  }

  void report_point(const ObjectPoint& point, double r) const {
    add_finding(findings_, FindingCode::gross_start, {&point, 0},
                {"object-point", point.id, {}, {}},
                "the start residuals of point " + printable(point.id) +
                    " stand out from all others: " + size_of(r),
                "compare its coordinates and its identifier with their sources");
  }

  // Whether all rays of a point, several, stand out in their images: then it is wrong, and not one
  // of its measurements.
  bool misses_all(const ObjectPoint& point,
                  const std::map<const BundleImage*, double>& typical) const {
    std::size_t rays = 0;
    for (std::size_t i = 0; i < rays_.size(); ++i) {
      if (rays_[i].object != &point) continue;
      ++rays;
      if (!(residuals_[i] > kAlone * typical.at(rays_[i].image))) return false;
    }
    return rays >= 2;
  }

  // Whether the other rays of an intersected point agree without this one.
  bool others_agree(std::size_t i) const {
    std::vector<StartRay> others;
    for (const StartRay& ray : rays_) {
      if (ray.object == nullptr && ray.measured->id == rays_[i].measured->id &&
          ray.image != rays_[i].image) {
        others.push_back(ray);
      }
    }
    std::vector<const StartRay*> all;
    for (const StartRay& ray : others) all.push_back(&ray);
    if (all.size() < kRaysToAgree) return false;
    const std::optional<Vec3> xyz = intersection(all);
    if (!xyz) return false;
    return std::all_of(others.begin(), others.end(), [&](StartRay ray) {
      ray.xyz = *xyz;
      return kAlone * residual(ray) < limit_;
    });
  }

  void report_measurements() {
    std::map<const BundleImage*, double> typical;  // median of each image
    for (auto& [image, residuals] :
         residuals_by<const BundleImage*>([](const StartRay& r) { return r.image; })) {
      typical.emplace(image, median(residuals));
    }
    std::vector<std::pair<double, std::size_t>> found;
    for (std::size_t i = 0; i < rays_.size(); ++i) {
      const double r = residuals_[i];
      if (r > limit_ && r > kAlone * typical.at(rays_[i].image)) found.emplace_back(r, i);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::unordered_set<const ObjectPoint*> points;
    std::size_t listed = 0;
    std::size_t tried = 0;
    for (const auto& [r, i] : found) {
      const StartRay& ray = rays_[i];
      if (++tried > 10 * kMostListed || listed == kMostListed) return;
      if (ray.object == nullptr && !others_agree(i)) continue;
      if (ray.object != nullptr && misses_all(*ray.object, typical)) {
        if (points.insert(ray.object).second) report_point(*ray.object, r);
        continue;
      }
      ++listed;
      add_finding(findings_, FindingCode::gross_start, {ray.measured, 0},
                  {"image-point", ray.measured->id, ray.image->id, {}},
                  "the start residual of point " + printable(ray.measured->id) + " in image " +
                      printable(ray.image->id) + " stands out from all others: " + size_of(r),
                  "compare its coordinates and its identifier with those in other images");
    }
  }

  const BundleProject& project_;
  const Rays& given_;
  FindingListener& findings_;
  std::unordered_set<const BundleImage*> removed_;
  Rays rays_;
  std::vector<double> residuals_;
  double extent_ = 0.0;
  double limit_ = 0.0;
  bool stands_out_ = false;
};

}  // namespace

void find_gross(const BundleProject& project, const std::vector<StartRay>& rays,
                FindingListener& findings) {
  GrossErrors(project, rays, findings).find();
}

}  // namespace vorn
