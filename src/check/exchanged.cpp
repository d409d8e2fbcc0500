// What fits when two of a kind are exchanged: the measurements of two images, or the identifiers of
// two points in an image. Each alone would look like a gross error of its own.

#include <algorithm>
#include <cmath>
#include <cstddef>
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

constexpr double kStandsOut = 2.0;      // times the typical residual of an image
constexpr double kVisible = 0.02;       // part of the half extent of the measurements
constexpr double kBad = 0.1;            // the same of a single measurement
constexpr double kExplains = 0.4;       // part of the residuals that remains,
constexpr double kMost = 0.8;           // of most of the rays
constexpr std::size_t kMostTried = 10;  // of images, and of points in an image
constexpr std::size_t kFewestRays = 5;
constexpr std::size_t kFewestImages = 4;

// The rays of an image and their residuals.
struct ImageRays {
  const BundleImage* image;
  std::vector<const StartRay*> rays;
  std::vector<double> residuals;
  double middle = 0.0;
};

class Exchanges {
 public:
  // Of the first rays of a fit.
  Exchanges(const BundleProject& project, const StartFit& fit, std::size_t num_rays,
            FindingListener& findings);

  bool find_images();
  bool find_points();

 private:
  std::vector<const ImageRays*> suspects() const;
  std::vector<const StartRay*> bad_rays(const ImageRays& image, double limit) const;
  void leave_bad_points(std::vector<std::vector<const StartRay*>>& bad, double limit) const;
  void list_rays(const std::unordered_set<std::string_view>& ids);
  double fit(const StartRay& ray, const StartRay& point, const BundleImage* without) const;
  double exchanged(const ImageRays& measured, const BundleImage& oriented) const;
  void report_image(const BundleImage& image, const BundleImage& other) const;
  void report_points(const StartRay& a, const StartRay& b) const;

  const BundleProject& project_;
  FindingListener& findings_;
  double extent_;
  double typical_ = 0.0;
  std::vector<ImageRays> images_;
  std::unordered_map<std::string_view, std::vector<StartRay>> rays_of_;  // points of interest
};

Exchanges::Exchanges(const BundleProject& project, const StartFit& fit, std::size_t num_rays,
                     FindingListener& findings)
    : project_(project), findings_(findings), extent_(fit.extent) {
  std::unordered_map<const BundleImage*, std::size_t> places;
  const BundleImage* last = nullptr;
  std::size_t place = 0;
  for (std::size_t i = 0; i < num_rays; ++i) {
    const StartRay& ray = fit.rays[i];
    if (ray.image != last) {
      last = ray.image;
      place = places.try_emplace(last, images_.size()).first->second;
      if (place == images_.size()) images_.push_back({last, {}, {}});
    }
    images_[place].rays.push_back(&ray);
    images_[place].residuals.push_back(fit.residuals[i]);
  }
  std::vector<double> middles;
  for (ImageRays& image : images_) {
    image.middle = median(image.residuals);
    middles.push_back(image.middle);
  }
  typical_ = median(std::move(middles));
}

// Images that fit worse than others, the worst first.
std::vector<const ImageRays*> Exchanges::suspects() const {
  std::vector<const ImageRays*> found;
  for (const ImageRays& image : images_) {
    const double limit = std::max(kStandsOut * typical_, kVisible * extent_);
    if (image.rays.size() >= kFewestRays && image.middle > limit) found.push_back(&image);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const ImageRays* a, const ImageRays* b) { return a->middle > b->middle; });
  if (found.size() > kMostTried) found.resize(kMostTried);
  return found;
}

// All rays to points without coordinates, of these identifiers.
void Exchanges::list_rays(const std::unordered_set<std::string_view>& ids) {
  rays_of_.clear();
  for (const BundleImage& image : project_.images) {
    if (dynamic_cast<const ExtOrientation*>(image.geometry) == nullptr) continue;
    for (const ImagePoint& measured : image.points) {
      if (ids.contains(measured.id)) {
        rays_of_[measured.id].push_back({&image, &measured, nullptr, {}});
      }
    }
  }
}

// The residual of a ray when it is one to another point: to its coordinates, or to those that it
// and the other rays of that point give, but for the ones of two images.
double Exchanges::fit(const StartRay& ray, const StartRay& point,
                      const BundleImage* without) const {
  StartRay moved{ray.image, ray.measured, point.object, point.xyz};
  if (point.object == nullptr) {
    const auto others = rays_of_.find(point.measured->id);
    if (others == rays_of_.end()) return HUGE_VAL;
    std::vector<const StartRay*> all = {&moved};
    for (const StartRay& other : others->second) {
      if (other.image != ray.image && other.image != without) all.push_back(&other);
    }
    const std::optional<Vec3> xyz = intersection(all);
    if (!xyz) return HUGE_VAL;
    moved.xyz = *xyz;
  }
  return residual(moved);
}

// What most measurements of one image stay below under the orientation of another.
double Exchanges::exchanged(const ImageRays& measured, const BundleImage& oriented) const {
  std::vector<double> residuals;
  for (const StartRay* ray : measured.rays) {
    const double left =
        fit({&oriented, ray->measured, ray->object, ray->xyz}, *ray, measured.image);
    if (left != HUGE_VAL) residuals.push_back(left);
  }
  const bool enough =
      residuals.size() >= kFewestRays && 2 * residuals.size() > measured.rays.size();
  return enough ? quantile(std::move(residuals), kMost) : HUGE_VAL;
}

bool Exchanges::find_images() {
  if (images_.size() < kFewestImages) return false;
  const std::vector<const ImageRays*> suspected = suspects();
  if (suspected.size() < 2) return false;
  std::unordered_set<std::string_view> ids;
  for (const ImageRays* image : suspected) {
    for (const StartRay* ray : image->rays) {
      if (ray->object == nullptr) ids.insert(ray->measured->id);
    }
  }
  if (!ids.empty()) list_rays(ids);
  std::unordered_set<const BundleImage*> reported;
  for (std::size_t i = 0; i < suspected.size(); ++i) {
    for (std::size_t j = i + 1; j < suspected.size(); ++j) {
      const ImageRays& a = *suspected[i];
      const ImageRays& b = *suspected[j];
      if (reported.contains(a.image) || reported.contains(b.image)) continue;
      if (!(exchanged(a, *b.image) < kExplains * a.middle) ||
          !(exchanged(b, *a.image) < kExplains * b.middle)) {
        continue;
      }
      report_image(*a.image, *b.image);
      report_image(*b.image, *a.image);
      reported.insert({a.image, b.image});
    }
  }
  return !reported.empty();
}

// Which of the two was exchanged, the measurements or the orientations, nothing tells.
void Exchanges::report_image(const BundleImage& image, const BundleImage& other) const {
  const std::string these = printable(image.id);
  const std::string those = printable(other.id);
  const std::string help =
      "exchange the two blocks of measurements, or the orientations, or their names in the images";
  add_finding(findings_, FindingCode::gross_start, {&image, place_of::kMeasurements},
              {"image", image.id, {}, {}},
              "the measurements of image " + these + " fit the orientation of image " + those +
                  ", and the other way",
              help);
  add_finding(findings_, FindingCode::gross_start, {image.geometry, 0},
              {"image-geometry", image.geometry->id, {}, {}},
              "the orientation of image " + these + " fits the measurements of image " + those +
                  ", and the other way",
              help);
}

// Rays of an image that stand out. None where most of them do, because then no two are the cause.
std::vector<const StartRay*> Exchanges::bad_rays(const ImageRays& image, double limit) const {
  std::vector<const StartRay*> bad;
  for (std::size_t i = 0; i < image.rays.size(); ++i) {
    if (image.residuals[i] > limit) bad.push_back(image.rays[i]);
  }
  if (bad.size() > kMostTried || 2 * bad.size() > image.rays.size()) bad.clear();
  return bad;
}

// Takes away points whose other rays, if their coordinates are given, miss them too.
void Exchanges::leave_bad_points(std::vector<std::vector<const StartRay*>>& bad,
                                 double limit) const {
  std::unordered_map<const ObjectPoint*, std::vector<double>> residuals_of;
  for (const auto& of_image : bad) {
    for (const StartRay* ray : of_image) {
      if (ray->object != nullptr) residuals_of.try_emplace(ray->object);
    }
  }
  for (const ImageRays& image : images_) {
    for (std::size_t i = 0; i < image.rays.size(); ++i) {
      const auto found = residuals_of.find(image.rays[i]->object);
      if (found != residuals_of.end()) found->second.push_back(image.residuals[i]);
    }
  }
  for (auto& of_image : bad) {
    std::erase_if(of_image, [&](const StartRay* ray) {
      return ray->object != nullptr && !(median(residuals_of.at(ray->object)) < limit);
    });
  }
}

bool Exchanges::find_points() {
  if (!(typical_ < kBad * extent_)) return false;
  const double limit = std::max(kBad * extent_, kStandsOut * typical_);
  std::vector<std::vector<const StartRay*>> bad;
  std::unordered_set<std::string_view> ids;
  for (const ImageRays& image : images_) {
    bad.push_back(bad_rays(image, limit));
    if (bad.back().size() < 2) bad.pop_back();
  }
  leave_bad_points(bad, limit);
  for (const auto& of_image : bad) {
    for (const StartRay* ray : of_image) ids.insert(ray->measured->id);
  }
  if (!ids.empty()) list_rays(ids);
  bool found = false;
  for (const auto& of_image : bad) {
    for (std::size_t i = 0; i < of_image.size(); ++i) {
      for (std::size_t j = i + 1; j < of_image.size(); ++j) {
        const StartRay& a = *of_image[i];
        const StartRay& b = *of_image[j];
        const double left = std::max(fit(a, b, nullptr), fit(b, a, nullptr));
        if (!(left < kExplains * limit)) continue;
        report_points(a, b);
        report_points(b, a);
        found = true;
      }
    }
  }
  return found;
}

void Exchanges::report_points(const StartRay& a, const StartRay& b) const {
  add_finding(findings_, FindingCode::gross_start, {a.measured, 0},
              {"image-point", a.measured->id, a.image->id, {}},
              "the measurement of point " + printable(a.measured->id) + " in image " +
                  printable(a.image->id) + " fits point " + printable(b.measured->id) +
                  ", and the other way",
              "exchange the identifiers of the two measurements");
}

}  // namespace

bool find_exchanged(const BundleProject& project, const StartFit& fit, FindingListener& findings) {
  if (Exchanges(project, fit, fit.num_given, findings).find_images()) return true;
  // One wrong image spoils the intersections with all others, so that these come second.
  Exchanges exchanges(project, fit, fit.rays.size(), findings);
  if (fit.num_given < fit.rays.size() && exchanges.find_images()) return true;
  return fit.worst > kBad * fit.extent && exchanges.find_points();
}

}  // namespace vorn
