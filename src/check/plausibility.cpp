// Plausibility: what would make the approximations fit the measurements.
//
// The start residual of a ray is the distance between the measured and the projected image point,
// in parts of the half extent of all measurements. Where the approximations fit as they are (median
// below kFits), nothing is doubted. Otherwise each mistake that people make is undone in turn; the
// one that makes the residuals small is named.

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "check/check.h"
#include "driver/bundle_project.h"
#include "geometry/eo_angles.h"
#include "lsq/ls_params.h"

namespace vorn {
namespace {

constexpr double kFits = 0.1;         // median residual of good approximations
constexpr double kImprovement = 0.3;  // of a mistake undone: residuals of at most this part remain
constexpr std::size_t kFewestRays = 8;
constexpr std::size_t kMostRays = 3000;

struct StartRay {
  const BundleImage* image;
  const ImagePoint* measured;
  const ObjectPoint* object;
};

std::vector<StartRay> start_rays(const BundleProject& project) {
  std::vector<StartRay> rays;
  for (const BundleImage& image : project.images) {
    if (image.geometry == nullptr) continue;
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object = project.object_points.find(point.id);
      if (object != nullptr && object->has_coords) rays.push_back({&image, &point, object});
    }
  }
  return rays;
}

// Every n-th ray, so that large projects take no longer.
std::vector<StartRay> sample_of(const std::vector<StartRay>& rays) {
  const std::size_t step = rays.size() / kMostRays + 1;
  std::vector<StartRay> sample;
  for (std::size_t i = 0; i < rays.size(); i += step) sample.push_back(rays[i]);
  return sample;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Pair measured_in_image(const StartRay& ray) {
  return ray.image->camera->pixel_to_image({ray.measured->x, ray.measured->y});
}

// What is read otherwise than the files say. The default changes nothing.
struct Reading {
  std::function<Pair(const StartRay&)> measured = measured_in_image;  // image coordinates [m]
  std::function<Vec3(const ObjectPoint&)> object = [](const ObjectPoint& p) { return p.xyz; };
  std::function<const ImageGeometry*(const BundleImage&)> geometry = [](const BundleImage& image) {
    return image.geometry;
  };
  double c_factor = 1.0;
};

// Residual of a ray [m]; not finite for a point that cannot be projected. Points behind the camera
// do not fit, wherever they are projected.
double residual(const StartRay& ray, const Reading& reading) {
  const Camera& camera = *ray.image->camera;
  const ImageGeometry& geometry = *reading.geometry(*ray.image);
  const Vec3 object = reading.object(*ray.object);
  Vec3 image{0.0, 0.0, -camera.c * reading.c_factor};
  // Where it fails, the residual is not finite.
  static_cast<void>(geometry.projection(object, image));
  const Pair computed = camera.camera_to_image(image);
  const Pair measured = reading.measured(ray);
  const double distance = std::hypot(measured[0] - computed[0], measured[1] - computed[1]);
  const auto* const orientation = dynamic_cast<const ExtOrientation*>(&geometry);
  if (orientation != nullptr && reading.c_factor > 0.0) {
    const Vec3 u =
        transposed_times(orientation->rotation_matrix(), object - orientation->projection_centre());
    if (camera.c > 0.0 && u[2] > 0.0) return HUGE_VAL;
  }
  return std::isfinite(distance) ? distance : HUGE_VAL;
}

// Median residual in parts of the half extent of the measurements.
double misfit(const std::vector<StartRay>& rays, const Reading& reading) {
  std::vector<double> residuals;
  double extent = 0.0;
  for (const StartRay& ray : rays) {
    residuals.push_back(residual(ray, reading));
    const Pair measured = reading.measured(ray);
    extent = std::max({extent, std::abs(measured[0]), std::abs(measured[1])});
  }
  return extent > 0.0 ? median(std::move(residuals)) / extent : HUGE_VAL;
}

// A mistake, told by the reading that undoes it.
struct Mistake {
  FindingCode code;
  std::string message;
  std::string help;
  Reading reading;
  RecordPlaces::Key place{nullptr, 0};
  FindingObject object;
};

struct Suspects {
  std::vector<Mistake> mistakes;
  // Orientations read otherwise, owned here.
  std::vector<std::unique_ptr<EOAngles>> orientations;
};

void add_measuring_mistakes(const BundleImage& image, Suspects& suspects) {
  const auto add = [&](std::string what, std::function<Pair(const StartRay&)> measured) {
    Mistake mistake{FindingCode::axes_suspect,
                    "the measurements fit the approximations when " + what,
                    "compare the axes of the measuring system with those of the camera type",
                    {},
                    {&image, 0},
                    {"image", image.id, {}, {}}};
    mistake.reading.measured = std::move(measured);
    suspects.mistakes.push_back(std::move(mistake));
  };
  add("x is mirrored", [](const StartRay& ray) {
    const Pair p = measured_in_image(ray);
    return Pair{-p[0], p[1]};
  });
  add("y is mirrored", [](const StartRay& ray) {
    const Pair p = measured_in_image(ray);
    return Pair{p[0], -p[1]};
  });
  // Pixels counted from the other side or with the other sign.
  add("x is mirrored: its sign as measured is changed", [](const StartRay& ray) {
    return ray.image->camera->pixel_to_image({-ray.measured->x, ray.measured->y});
  });
  add("y is mirrored: its sign as measured is changed", [](const StartRay& ray) {
    return ray.image->camera->pixel_to_image({ray.measured->x, -ray.measured->y});
  });
  add("x and y are exchanged as measured", [](const StartRay& ray) {
    return ray.image->camera->pixel_to_image({ray.measured->y, ray.measured->x});
  });
}

void add_camera_mistakes(const Camera& camera, Suspects& suspects) {
  const auto add = [&](FindingCode code, std::string message, std::string help, double c_factor) {
    Mistake mistake{code, std::move(message), std::move(help),
                    {},   {&camera, 0},       {"camera", camera.id, {}, "c"}};
    mistake.reading.c_factor = c_factor;
    suspects.mistakes.push_back(std::move(mistake));
  };
  add(FindingCode::axes_suspect, "the measurements fit the approximations when c is negated",
      "c is positive, and the axes of images point to the right and up", -1.0);
  for (const double factor : {1000.0, 0.001}) {
    add(FindingCode::unit_suspect,
        std::string("the measurements fit the approximations when c is ") +
            (factor > 1.0 ? "1000 times larger" : "1000 times smaller") +
            " against the image coordinates",
        "c is given in mm, pixel sizes in um; the scale factor of an image turns its coordinates "
        "into m (pixels stay pixels)",
        factor);
  }
}

void add_control_mistakes(const ObjectPoint& first, Suspects& suspects) {
  const auto add = [&](FindingCode code, std::string what, std::string help,
                       std::function<Vec3(const ObjectPoint&)> object) {
    Mistake mistake{code,
                    "the measurements fit the approximations when " + what,
                    std::move(help),
                    {},
                    {&first, 0},
                    {"object-point", first.id, {}, {}}};
    mistake.reading.object = std::move(object);
    suspects.mistakes.push_back(std::move(mistake));
  };
  add(FindingCode::axes_suspect, "X and Y of the control are exchanged",
      "coordinates are right-handed: east, north, height", [](const ObjectPoint& p) {
        return Vec3{p.xyz[1], p.xyz[0], p.xyz[2]};
      });
  for (const double factor : {1000.0, 0.001, 0.3048, 1.0 / 0.3048}) {
    add(FindingCode::unit_suspect,
        "the coordinates of object points are multiplied by " +
            std::string(factor == 1000.0  ? "1000"
                        : factor == 0.001 ? "0.001"
                        : factor < 1.0    ? "0.3048"
                                          : "1/0.3048"),
        "control and projection centres must be in one unit",
        [factor](const ObjectPoint& p) { return factor * p.xyz; });
  }
}

// One orientation of each image with other angles.
void add_rotation_reading(const BundleProject& project, FindingCode code, std::string message,
                          std::string help, const AngleConvention& convention,
                          const std::array<std::size_t, 3>& order, double factor,
                          Suspects& suspects) {
  auto others = std::make_shared<std::map<const ImageGeometry*, const ImageGeometry*>>();
  const EOAngles* first = nullptr;
  for (const ImageGeometry& geometry : project.image_geometries) {
    (*others)[&geometry] = &geometry;
    const auto* const angles = dynamic_cast<const EOAngles*>(&geometry);
    if (angles == nullptr) continue;
    if (first == nullptr) first = angles;
    auto other = std::make_unique<EOAngles>(convention);
    for (std::int32_t k = 0; k < 3; ++k) {
      other->value(k) = angles->value(k);
      other->value(3 + k) =
          factor * angles->value(3 + static_cast<std::int32_t>(order[static_cast<std::size_t>(k)]));
    }
    other->update();
    (*others)[&geometry] = other.get();
    suspects.orientations.push_back(std::move(other));
  }
  if (first == nullptr) return;
  Mistake mistake{code, std::move(message), std::move(help),
                  {},   {first, 0},         {"image-geometry", first->id, {}, {}}};
  mistake.reading.geometry = [others](const BundleImage& image) {
    return others->at(image.geometry);
  };
  suspects.mistakes.push_back(std::move(mistake));
}

void add_rotation_mistakes(const BundleProject& project, Suspects& suspects) {
  const EOAngles* first = nullptr;
  for (const ImageGeometry& geometry : project.image_geometries) {
    first = dynamic_cast<const EOAngles*>(&geometry);
    if (first != nullptr) break;
  }
  if (first == nullptr) return;
  const std::array<const AngleConvention*, 4> conventions = {&kAnglesPOKRot, &kAnglesOPKRot,
                                                             &kAnglesOPKFix, &kAnglesAustralis};
  const AngleConvention* own = nullptr;
  for (const AngleConvention* convention : conventions) {
    if (convention->keyword == first->get_keyword()) own = convention;
  }
  std::array<std::size_t, 3> order = {0, 1, 2};
  do {
    for (const AngleConvention* convention : conventions) {
      const bool in_order = order == std::array<std::size_t, 3>{0, 1, 2};
      if (in_order && convention == own) continue;
      std::string what = "the angles are taken as " + quoted(convention->keyword);
      if (!in_order) {
        what += " and given in the order";
        for (const std::size_t k : order) what += " " + std::to_string(k + 1);
      }
      add_rotation_reading(project, FindingCode::rotation_suspect,
                           "the measurements fit the approximations when " + what,
                           "compare the type and the order of the angles with those of their "
                           "source",
                           *convention, order, 1.0, suspects);
    }
  } while (std::next_permutation(order.begin(), order.end()));
  constexpr double kDegree = std::numbers::pi / 180.0;
  constexpr double kGon = std::numbers::pi / 200.0;
  const std::array<std::pair<double, std::string_view>, 6> units = {{
      {kDegree, "degrees, not radians"},
      {kGon, "gon, not radians"},
      {1.0 / kDegree, "radians, not degrees"},
      {1.0 / kGon, "radians, not gon"},
      {kGon / kDegree, "gon, not degrees"},
      {kDegree / kGon, "degrees, not gon"},
  }};
  for (const auto& [factor, what] : units) {
    add_rotation_reading(
        project, FindingCode::unit_suspect,
        "the measurements fit the approximations when angles are " + std::string(what),
        "give the unit of the angles with each orientation", *own, {0, 1, 2}, factor, suspects);
  }
}

const ObjectPoint* first_control(const BundleProject& project) {
  for (const ObjectPoint& point : project.object_points) {
    if (point.has_coords && point.type == PointType::control) return &point;
  }
  for (const ObjectPoint& point : project.object_points) {
    if (point.has_coords) return &point;
  }
  return nullptr;
}

// Names the mistake that explains the start residuals best. True when they need no explanation or
// have one.
bool find_mistake(const BundleProject& project, const std::vector<StartRay>& rays, bool axes_too,
                  FindingListener& findings) {
  const double base = misfit(rays, {});
  if (base < kFits) return true;
  Suspects suspects;
  add_measuring_mistakes(*rays.front().image, suspects);
  add_camera_mistakes(*rays.front().image->camera, suspects);
  if (const ObjectPoint* const control = first_control(project)) {
    add_control_mistakes(*control, suspects);
  }
  add_rotation_mistakes(project, suspects);
  const Mistake* best = nullptr;
  double smallest = std::min(kImprovement * base, kFits);
  for (const Mistake& mistake : suspects.mistakes) {
    const double left = misfit(rays, mistake.reading);
    if (!(left < smallest)) continue;
    smallest = left;
    best = &mistake;
  }
  if (best == nullptr) return false;
  if (best->code == FindingCode::unit_suspect || axes_too) {
    add_finding(findings, best->code, best->place, best->object, best->message, best->help);
  }
  return true;
}

// ---- single values -----------------------------------------------------------------------------

// Angles beyond four turns are of another unit; sigma 0 and the measurements' standard deviations
// belong together.
void check_units(const BundleProject& project, FindingListener& findings) {
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
  constexpr double kFarApart = 100.0;
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
  add_finding(findings, FindingCode::unit_suspect, {first, 0}, {"ls-params", {}, {}, "sigma 0"},
              std::string("sigma 0 a priori is ") +
                  (sigma > sigma0 ? "more than 100 times smaller" : "more than 100 times larger") +
                  " than the standard deviations of the image points",
              "sigma 0 is given in m; the scale factor of an image applies to its standard "
              "deviations, too");
}

// c and the images: a field of view that no lens has.
void check_field_of_view(const BundleProject& project, FindingListener& findings) {
  constexpr double kWidest = 20.0;  // half extent by c
  constexpr double kNarrowest = 0.003;
  std::map<const Camera*, double> extents;
  for (const BundleImage& image : project.images) {
    if (dynamic_cast<const ExtOrientation*>(image.geometry) == nullptr) continue;
    double& extent = extents[image.camera];
    for (const ImagePoint& point : image.points) {
      const Pair p = image.camera->pixel_to_image({point.x, point.y});
      extent =
          std::max({extent, std::abs(p[0] - image.camera->xp), std::abs(p[1] - image.camera->yp)});
    }
  }
  for (const Camera& camera : project.cameras) {
    const auto found = extents.find(&camera);
    if (found == extents.end() || found->second == 0.0) continue;
    const double ratio = found->second / camera.c;
    if (ratio > kNarrowest && ratio < kWidest) continue;
    add_finding(findings, FindingCode::unit_suspect, {&camera, 0}, {"camera", camera.id, {}, "c"},
                "the measurements of camera " + printable(camera.id) + " are " +
                    (ratio < 1.0 ? "far too small" : "far too large") + " against its c",
                "c is given in mm, pixel sizes in um; the scale factor of an image turns its "
                "coordinates into m (pixels stay pixels)");
  }
}

// ---- what stands out ---------------------------------------------------------------------------

// Images and points whose residuals stand out from all others, the worst ten of each.
void find_gross(const std::vector<StartRay>& rays, FindingListener& findings) {
  constexpr double kStandsOut = 10.0;
  constexpr double kVisible = 0.1;
  constexpr std::size_t kMostListed = 10;
  constexpr std::size_t kFewest = 3;
  std::map<const BundleImage*, std::vector<double>> by_image;
  std::map<const ObjectPoint*, std::vector<double>> by_point;
  std::vector<double> all;
  double extent = 0.0;
  for (const StartRay& ray : rays) {
    const double r = residual(ray, {});
    all.push_back(r);
    by_image[ray.image].push_back(r);
    by_point[ray.object].push_back(r);
    const Pair p = measured_in_image(ray);
    extent = std::max({extent, std::abs(p[0]), std::abs(p[1])});
  }
  const double limit = std::max(kStandsOut * median(std::move(all)), kVisible * extent);
  const auto worst = [&](auto& groups) {
    std::vector<std::pair<double, const typename std::decay_t<decltype(groups)>::key_type*>> found;
    for (auto& [object, residuals] : groups) {
      const double middle = median(residuals);
      if (residuals.size() >= 2 && middle > limit) found.push_back({middle, &object});
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    if (found.size() > kMostListed) found.resize(kMostListed);
    return found;
  };
  const auto size_of = [extent](double r) {
    return r == HUGE_VAL ? std::string("behind the camera")
                         : std::to_string(static_cast<int>(std::min(100.0 * r / extent, 1e6))) +
                               " % of the half image";
  };
  const auto images = worst(by_image);
  const auto points = worst(by_point);
  if (by_image.size() >= kFewest) {
    for (const auto& [r, image] : images) {
      const ImageGeometry& geometry = *(*image)->geometry;
      add_finding(findings, FindingCode::gross_start, {&geometry, 0},
                  {"image", (*image)->id, {}, {}},
                  "the start residuals of image " + printable((*image)->id) +
                      " stand out from all others: " + size_of(r),
                  "compare its orientation and its measurements with those of its neighbours");
    }
  }
  if (!images.empty() || by_point.size() < kFewest) return;
  for (const auto& [r, point] : points) {
    add_finding(findings, FindingCode::gross_start, {*point, 0},
                {"object-point", (*point)->id, {}, {}},
                "the start residuals of point " + printable((*point)->id) +
                    " stand out from all others: " + size_of(r),
                "compare its coordinates and its identifier with their sources");
  }
}

}  // namespace

void check_plausibility(BundleProject& project, FindingList& findings) {
  for (ImageGeometry& geometry : project.image_geometries) geometry.update();
  check_units(project, findings);
  check_field_of_view(project, findings);
  const std::vector<StartRay> rays = start_rays(project);
  if (rays.size() < kFewestRays) return;
  const bool sound = !findings.has_errors();
  if (!find_mistake(project, sample_of(rays), sound, findings) || !sound) return;
  if (misfit(sample_of(rays), {}) < kFits) find_gross(rays, findings);
}

}  // namespace vorn
