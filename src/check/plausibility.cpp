// Plausibility: units of single values, and what the start residuals say.
//
// The start residual of a ray is the distance between the measured and the projected image point,
// as the files give both.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/start_rays.h"
#include "driver/bundle_project.h"
#include "geometry/eo_angles.h"
#include "lsq/ls_params.h"
#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"

namespace vorn {
namespace {

// Residuals, in parts of the half extent of the measurements.
constexpr double kFitsSomehow = 0.3;  // of most of them
constexpr double kVisible = 0.02;     // below, none says anything
constexpr double kStandsOut = 0.1;    // of one that may be a gross error

// Angles beyond four turns are of another unit.
void check_angles(const BundleProject& project, FindingListener& findings) {
  constexpr double kMostTurns = 4.0;
  for (const ImageGeometry& geometry : project.image_geometries) {
    if (dynamic_cast<const EOAngles*>(&geometry) == nullptr) continue;
    for (std::int32_t k = 3; k < 6; ++k) {
      if (!(std::abs(geometry.value(k)) > kMostTurns * 2.0 * std::numbers::pi)) continue;
      add_finding(findings, FindingCode::unit_suspect, {&geometry, 0},
                  {"image-geometry", geometry.id, {}, geometry.get_param_name(k)},
                  geometry.get_param_name(k) + " of image geometry " + printable(geometry.id) +
                      " is more than four turns",
                  "give the unit of the angles: \"deg\", \"gon\" or \"rad\"");
      break;
    }
  }
}

// Sigma 0 and the measurements' standard deviations belong together.
void check_sigmas(const BundleProject& project, FindingListener& findings) {
  constexpr double kFarApart = 100.0;
  constexpr double kFinest = 1e-8;  // standard deviations of image points that people have [m]
  constexpr double kCoarsest = 2e-4;
  std::vector<double> sigmas;
  const BundleImage* first = nullptr;
  for (const BundleImage& image : project.images) {
    for (const ImagePoint& point : image.points) {
      if (first == nullptr) first = &image;
      const Pair sigma = image.camera->sdev_to_image({point.sx, point.sy});
      // Of pushbroom images one of the two may be a formality.
      sigmas.push_back(std::max(sigma[0], sigma[1]));
    }
  }
  const double sigma0 = ls_params().sigma0_apriori;
  const double sigma = median(std::move(sigmas));
  if (first == nullptr || !(sigma > 0.0) || !(sigma0 > 0.0)) return;
  if (sigma / sigma0 < kFarApart && sigma0 / sigma < kFarApart) return;
  const auto usual = [](double value) { return value >= kFinest && value <= kCoarsest; };
  const bool blame_points = usual(sigma0) && !usual(sigma);
  const std::string apart = sigma > sigma0 ? "more than 100 times smaller"
                                           : "more than 100 times "
                                             "larger";
  const bool placed = findings.places.find(&ls_params(), place_of::kSigma0).line > 0;
  if (blame_points || !placed) {
    add_finding(
        findings, FindingCode::unit_suspect, {&*first->points.begin(), 0},
        {"image", first->id, {}, "standard deviation"},
        "sigma 0 a priori is " + apart + " than the standard deviations of the image points",
        "the scale factor of an image applies to its standard deviations, too");
    return;
  }
  add_finding(findings, FindingCode::unit_suspect, {&ls_params(), place_of::kSigma0},
              {"ls-params", {}, {}, "sigma 0"},
              "sigma 0 a priori is " + apart + " than the standard deviations of the image points",
              "sigma 0 is given in m; the scale factor of an image applies to its standard "
              "deviations, too");
}

// Half the extent of an image's measurements against c.
double half_field(const BundleImage& image) {
  const Camera& camera = *image.camera;
  // Across the line of a pushbroom camera nothing is measured.
  const bool line = dynamic_cast<const PBCamera*>(&camera) != nullptr;
  double extent = 0.0;
  for (const ImagePoint& point : image.points) {
    const Pair p = camera.pixel_to_image({point.x, point.y});
    extent = std::max(extent, std::abs(p[1] - camera.yp));
    if (!line) extent = std::max(extent, std::abs(p[0] - camera.xp));
  }
  return extent / std::abs(camera.c);
}

// The word that is the likeliest cause of a field of view that no lens has.
RecordPlaces::Key culprit(const Camera& camera, const BundleImage& image) {
  constexpr double kShortest = 5e-4;  // c [m]
  constexpr double kLongest = 10.0;
  constexpr double kFinest = 1e-7;  // pixels [m]
  constexpr double kCoarsest = 2e-4;
  const Pair a = camera.pixel_to_image({0.0, 0.0});
  const Pair b = camera.pixel_to_image({1.0, 0.0});
  const double pixel = std::hypot(b[0] - a[0], b[1] - a[1]);
  if (camera.c < kShortest || camera.c > kLongest) return {&camera, place_of::kDistance};
  if (camera.get_coord_system_name() == "image") return {&image, place_of::kMeasurements};
  return {&camera,
          pixel < kFinest || pixel > kCoarsest ? place_of::kPixelSize : place_of::kDistance};
}

// The fields of view of a camera's images.
struct Fields {
  std::vector<double> all;
  std::vector<std::pair<const BundleImage*, double>> odd;

  // Whether the odd ones are odd beside the others, too.
  bool others_differ() const {
    constexpr double kFarApart = 20.0;
    const double middle = median(all);
    return 2 * odd.size() <= all.size() && std::all_of(odd.begin(), odd.end(), [&](const auto& o) {
             return o.second > kFarApart * middle || kFarApart * o.second < middle;
           });
  }
};

// c and the images: a field of view that no lens has. True when there is one.
bool check_field_of_view(const BundleProject& project, FindingListener& findings) {
  constexpr double kWidest = 20.0;  // half extent by c
  constexpr double kNarrowest = 0.003;
  std::map<const Camera*, Fields> cameras;
  for (const BundleImage& image : project.images) {
    if (dynamic_cast<const ExtOrientation*>(image.geometry) == nullptr) continue;
    const double field = half_field(image);
    if (field == 0.0) continue;
    Fields& of_camera = cameras[image.camera];
    of_camera.all.push_back(field);
    // A point in the middle of an image says nothing.
    const bool wide = field > kWidest;
    if (wide || (field < kNarrowest && image.count_points() > 2)) {
      of_camera.odd.emplace_back(&image, field);
    }
  }
  bool found = false;
  const std::string units =
      "c is given in mm, pixel sizes in um; the scale factor of an image turns its coordinates "
      "into m (pixels stay pixels)";
  for (const Camera& camera : project.cameras) {
    const Fields& of_camera = cameras[&camera];
    if (of_camera.odd.empty()) continue;
    found = true;
    const auto size = [](double field) {
      return std::string(field < 1.0 ? "far too small" : "far too large") + " against its c";
    };
    if (!of_camera.others_differ()) {
      const auto& [image, field] = of_camera.odd.front();
      add_finding(findings, FindingCode::unit_suspect, culprit(camera, *image),
                  {"camera", camera.id, {}, "c"},
                  "the measurements of camera " + printable(camera.id) + " are " + size(field),
                  units);
      continue;
    }
    for (const auto& [image, field] : of_camera.odd) {
      add_finding(findings, FindingCode::unit_suspect, {image, place_of::kMeasurements},
                  {"image", image->id, {}, {}},
                  "the measurements of image " + printable(image->id) + " are " + size(field) +
                      ", and not those of the camera's other images",
                  units);
    }
  }
  return found;
}

// Whether reading found values of cameras or images that cannot be: c, pixel sizes, scale factors.
bool cameras_cannot_be(const FindingList& findings) {
  const std::vector<Finding> found = findings.findings();
  return std::any_of(found.begin(), found.end(), [](const Finding& finding) {
    return finding.code == FindingCode::value_range &&
           (finding.object.type == "camera" || finding.object.type == "image");
  });
}

// What does not fit beside the rest: pairs, lists, single objects. The first kind that is found
// explains the others.
void find_misfits(const BundleProject& project, const StartFit& fit, FindingListener& findings) {
  // Below that nothing stands out, and large projects take no longer than reading them.
  if (!(fit.worst > kVisible * fit.extent)) return;
  if (find_exchanged(project, fit, findings)) return;
  if (!(fit.worst > kStandsOut * std::min(fit.extent, fit.extent_of_given))) return;
  if (find_foreign_control(fit, findings)) return;
  const auto given = static_cast<std::ptrdiff_t>(fit.num_given);
  if (median({fit.residuals.begin(), fit.residuals.begin() + given}) <
      kFitsSomehow * fit.extent_of_given) {
    find_gross(project, {fit.rays.begin(), fit.rays.begin() + given}, findings);
  }
}

}  // namespace

void check_plausibility(BundleProject& project, FindingList& findings) {
  for (ImageGeometry& geometry : project.image_geometries) geometry.update();
  check_angles(project, findings);
  if (cameras_cannot_be(findings)) return;
  if (check_field_of_view(project, findings)) return;
  check_sigmas(project, findings);
  std::vector<StartRay> rays = start_rays(project);
  const bool sound = !findings.has_errors();
  if (find_mistake(project, rays, sound, findings) || !sound) return;
  find_misfits(project, StartFit(project, std::move(rays)), findings);
}

}  // namespace vorn
