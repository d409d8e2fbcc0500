// Mistakes that explain the start residuals: each mistake that people make is undone in turn, and
// the one that makes the residuals small is named.
//
// Residuals count in parts of the half extent of the measurements, and by the value that most of
// them stay below, so that one strip that does not fit is seen beside another one that does.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/start_rays.h"
#include "driver/bundle_project.h"
#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "lsq/ls_params.h"

namespace vorn {
namespace {

constexpr double kMost = 0.8;           // of all residuals
constexpr double kFits = 0.1;           // residual of good approximations
constexpr double kSound = 0.01;         // residuals so small need no explanation
constexpr double kDoubtful = 0.03;      // residuals of rough approximations, or of a small mistake
constexpr double kExplains = 0.3;       // part of the residuals that remains when they did not fit
constexpr double kExplainsWell = 0.15;  // the same when they fitted more or less
constexpr double kExplainsAll = 0.65;   // the same when nearly every image gains
constexpr double kNearlyAll = 0.85;     // of the images for which it
constexpr double kMatters = 0.7;        // by this factor
constexpr std::size_t kFewestImages = 5;
constexpr double kClearer = 0.7;  // of two explanations the simpler one, unless so much worse
constexpr std::size_t kFewestRays = 8;
constexpr std::size_t kMostRays = 3000;

// Every n-th ray, so that large projects take no longer.
std::vector<StartRay> sample_of(const std::vector<StartRay>& rays) {
  const std::size_t step = rays.size() / kMostRays + 1;
  std::vector<StartRay> sample;
  for (std::size_t i = 0; i < rays.size(); i += step) sample.push_back(rays[i]);
  return sample;
}

// What most residuals stay below, in parts of the half extent of the measurements.
double misfit(const std::vector<StartRay>& rays, const Reading& reading) {
  std::vector<double> residuals;
  residuals.reserve(rays.size());
  for (const StartRay& ray : rays) residuals.push_back(residual(ray, reading));
  const double extent = extent_of(rays, reading);
  return extent > 0.0 ? quantile(std::move(residuals), kMost) / extent : HUGE_VAL;
}

// A mistake, told by the reading that undoes it.
struct Mistake {
  FindingCode code;
  std::string what;
  std::string help;
  Reading reading;
  RecordPlaces::Key place{nullptr, 0};
  FindingObject object;
};

// The mistakes of a project; simpler ones come first.
class Suspects {
 public:
  explicit Suspects(const BundleProject& project, const StartRay& first)
      : project_(project), first_(first) {}

  void add_measuring_mistakes();
  void add_camera_mistakes();
  void add_object_mistakes(const std::vector<StartRay>& rays);
  void add_position_mistakes();
  void add_angle_units();
  void add_angle_signs();
  void add_conventions();
  void add_quaternion_mistakes();

  const std::vector<Mistake>& mistakes() const { return mistakes_; }

 private:
  using Params = ExtOrientation::RotationParams;

  void add(FindingCode code, std::string what, std::string help, Reading reading,
           RecordPlaces::Key place, FindingObject object) {
    mistakes_.push_back(
        {code, std::move(what), std::move(help), std::move(reading), place, std::move(object)});
  }
  template <class Orientation>
  const Orientation* first_of_type() const {
    for (const ImageGeometry& geometry : project_.image_geometries) {
      if (const auto* const found = dynamic_cast<const Orientation*>(&geometry)) return found;
    }
    return nullptr;
  }
  // Angles that are read otherwise: `change` gets those of the file, and gives those that
  // `convention` (null: the orientation's own) makes a rotation of.
  void add_rotation(FindingCode code, std::string what, std::string help,
                    const AngleConvention* convention, std::function<Params(const Params&)> change);

  const BundleProject& project_;
  const StartRay& first_;
  std::vector<Mistake> mistakes_;
};

void Suspects::add_measuring_mistakes() {
  const BundleImage& image = *first_.image;
  const auto add_axis = [&](std::string what, std::function<Pair(const StartRay&)> measured) {
    Reading reading;
    reading.measured = std::move(measured);
    add(FindingCode::axes_suspect, std::move(what),
        "compare the axes of the measuring system with those of the camera type",
        std::move(reading), {&image, place_of::kMeasurements}, {"image", image.id, {}, {}});
  };
  add_axis("x is mirrored", [](const StartRay& ray) {
    const Pair p = measured_in_image(ray);
    return Pair{-p[0], p[1]};
  });
  add_axis("y is mirrored", [](const StartRay& ray) {
    const Pair p = measured_in_image(ray);
    return Pair{p[0], -p[1]};
  });
  // Pixels counted from the other side or with the other sign.
  add_axis("x is mirrored: its sign as measured is changed", [](const StartRay& ray) {
    return ray.image->camera->pixel_to_image({-ray.measured->x, ray.measured->y});
  });
  add_axis("y is mirrored: its sign as measured is changed", [](const StartRay& ray) {
    return ray.image->camera->pixel_to_image({ray.measured->x, -ray.measured->y});
  });
  add_axis("x and y are exchanged as measured", [](const StartRay& ray) {
    return ray.image->camera->pixel_to_image({ray.measured->y, ray.measured->x});
  });
  for (const double sign : {1.0, -1.0}) {
    add_axis(
        std::string("the axes of the images are turned by ") + (sign > 0.0 ? "" : "-") + "90 deg",
        [sign](const StartRay& ray) {
          const Pair p = measured_in_image(ray);
          return Pair{sign * p[1], -sign * p[0]};
        });
    add_axis(std::string("pixels are counted from the middle of the images, rows ") +
                 (sign > 0.0 ? "downwards" : "upwards"),
             [sign](const StartRay& ray) {
               const Camera& camera = *ray.image->camera;
               const Pair middle = camera.image_to_pixel({0.0, 0.0});
               return camera.pixel_to_image(
                   {middle[0] + ray.measured->x, middle[1] + sign * ray.measured->y});
             });
  }
}

void Suspects::add_camera_mistakes() {
  const Camera& camera = *first_.image->camera;
  const auto add_distance = [&](FindingCode code, std::string what, std::string help,
                                std::function<double(const Camera&)> distance) {
    Reading reading;
    reading.distance = std::move(distance);
    add(code, std::move(what), std::move(help), std::move(reading), {&camera, place_of::kDistance},
        {"camera", camera.id, {}, "c"});
  };
  add_distance(FindingCode::axes_suspect, "c is negated",
               "c is positive, and the axes of images point to the right and up",
               [](const Camera& c) { return -c.c; });
  const std::string units =
      "c is given in mm, pixel sizes in um; the scale factor of an image turns its coordinates "
      "into m (pixels stay pixels)";
  for (const int factor : {1000, 10}) {
    const std::string times = "c is " + std::to_string(factor) + " times ";
    add_distance(FindingCode::unit_suspect, times + "larger against the image coordinates", units,
                 [factor](const Camera& c) { return factor * c.c; });
    add_distance(FindingCode::unit_suspect, times + "smaller against the image coordinates", units,
                 [factor](const Camera& c) { return c.c / factor; });
  }
  add_distance(FindingCode::unit_suspect, "c is given in pixels, not in mm",
               "multiply c by the size of a pixel in mm", [](const Camera& c) {
                 const Pair a = c.pixel_to_image({0.0, 0.0});
                 const Pair b = c.pixel_to_image({1.0, 0.0});
                 return 1000.0 * c.c * std::hypot(b[0] - a[0], b[1] - a[1]);
               });
}

void Suspects::add_object_mistakes(const std::vector<StartRay>& rays) {
  const ObjectPoint* first = rays.front().object;
  for (const StartRay& ray : rays) {
    if (ray.object->type != PointType::control) continue;
    first = ray.object;
    break;
  }
  const auto add_change = [&](FindingCode code, const std::string& what, std::string help,
                              std::function<Vec3(const Vec3&)> change) {
    Reading reading;
    reading.object = [change = std::move(change)](const StartRay& ray) { return change(ray.xyz); };
    add(code, what, std::move(help), std::move(reading), {first, 0},
        {"object-point", first->id, {}, {}});
  };
  add_change(FindingCode::axes_suspect, "X and Y of the control are exchanged",
             "coordinates are right-handed: east, north, height", [](const Vec3& p) {
               return Vec3{p[1], p[0], p[2]};
             });
  add_change(FindingCode::axes_suspect, "Z of the control has the other sign",
             "Z points upwards in a right-handed system", [](const Vec3& p) {
               return Vec3{p[0], p[1], -p[2]};
             });
  add_change(FindingCode::axes_suspect, "Y and Z of the control are exchanged",
             "heights are the third coordinate", [](const Vec3& p) {
               return Vec3{p[0], p[2], p[1]};
             });
  constexpr double kFoot = 0.3048;
  add_change(FindingCode::unit_suspect, "the heights of object points are multiplied by 0.3048",
             "heights and horizontal coordinates must be in one unit", [](const Vec3& p) {
               return Vec3{p[0], p[1], kFoot * p[2]};
             });
  const std::array<std::pair<double, std::string_view>, 8> factors = {{{1000.0, "1000"},
                                                                       {0.001, "0.001"},
                                                                       {100.0, "100"},
                                                                       {0.01, "0.01"},
                                                                       {10.0, "10"},
                                                                       {0.1, "0.1"},
                                                                       {kFoot, "0.3048"},
                                                                       {1.0 / kFoot, "1/0.3048"}}};
  for (const auto& [factor, name] : factors) {
    add_change(FindingCode::unit_suspect,
               "the coordinates of object points are multiplied by " + std::string(name),
               "control and projection centres must be in one unit",
               [factor = factor](const Vec3& p) { return factor * p; });
  }
}

void Suspects::add_position_mistakes() {
  const auto* const first = first_of_type<ExtOrientation>();
  if (first == nullptr) return;
  Reading reading;
  reading.pose = [](const ExtOrientation& eo) {
    const Vec3& c = eo.projection_centre();
    return Pose{{c[1], c[0], c[2]}, eo.rotation_matrix()};
  };
  add(FindingCode::axes_suspect, "X and Y of the projection centres are exchanged",
      "coordinates are right-handed: east, north, height", std::move(reading), {first, 0},
      {"image-geometry", first->id, {}, {}});
}

void Suspects::add_rotation(FindingCode code, std::string what, std::string help,
                            const AngleConvention* convention,
                            std::function<Params(const Params&)> change) {
  const auto* const first = first_of_type<EOAngles>();
  if (first == nullptr) return;
  auto other = convention == nullptr ? nullptr : std::make_shared<const EOAngles>(*convention);
  Reading reading;
  reading.pose = [other, change = std::move(change)](const ExtOrientation& eo) {
    Pose pose{eo.projection_centre(), eo.rotation_matrix()};
    if (const auto* const angles = dynamic_cast<const EOAngles*>(&eo)) {
      const Params params = change({eo.value(3), eo.value(4), eo.value(5), 0.0});
      pose.rotation = (other != nullptr ? *other : *angles).matrix_from_params(params);
    }
    return pose;
  };
  add(code, std::move(what), std::move(help), std::move(reading), {first, 0},
      {"image-geometry", first->id, {}, {}});
}

void Suspects::add_angle_units() {
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
    add_rotation(FindingCode::unit_suspect, "angles are " + std::string(what),
                 "give the unit of the angles with each orientation", nullptr,
                 [factor = factor](const Params& a) {
                   return Params{factor * a[0], factor * a[1], factor * a[2], 0.0};
                 });
  }
}

constexpr const char* kCompareAngles =
    "compare the type and the order of the angles with those of their source";

void Suspects::add_angle_signs() {
  constexpr std::array<std::string_view, 3> kOrdinals = {"first", "second", "third"};
  add_rotation(FindingCode::rotation_suspect, "all angles have the other sign", kCompareAngles,
               nullptr, [](const Params& a) {
                 return Params{-a[0], -a[1], -a[2], 0.0};
               });
  for (std::size_t k = 0; k < 3; ++k) {
    add_rotation(FindingCode::rotation_suspect,
                 "the " + std::string(kOrdinals[k]) + " angle has the other sign", kCompareAngles,
                 nullptr, [k](Params a) {
                   a[k] = -a[k];
                   return a;
                 });
  }
  const auto* const first = first_of_type<ExtOrientation>();
  if (first == nullptr) return;
  Reading reading;
  reading.pose = [](const ExtOrientation& eo) {
    Pose pose{eo.projection_centre(), eo.rotation_matrix()};
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t j = 0; j < i; ++j) std::swap(pose.rotation[i][j], pose.rotation[j][i]);
    }
    return pose;
  };
  add(FindingCode::rotation_suspect, "the rotations are transposed",
      "a rotation matrix turns directions of the image into those of the object",
      std::move(reading), {first, 0}, {"image-geometry", first->id, {}, {}});
}

void Suspects::add_conventions() {
  constexpr std::array<const AngleConvention*, 4> kConventions = {
      &kAnglesPOKRot, &kAnglesOPKRot, &kAnglesOPKFix, &kAnglesAustralis};
  const auto* const first = first_of_type<EOAngles>();
  if (first == nullptr) return;
  std::array<std::size_t, 3> order = {0, 1, 2};
  do {
    const bool in_order = order == std::array<std::size_t, 3>{0, 1, 2};
    for (const AngleConvention* convention : kConventions) {
      if (in_order && convention->keyword == first->get_keyword()) continue;
      std::string what = "the angles are taken as " + quoted(convention->keyword);
      if (!in_order) {
        what += " and given in the order";
        for (const std::size_t k : order) what += " " + std::to_string(k + 1);
      }
      add_rotation(FindingCode::rotation_suspect, std::move(what), kCompareAngles, convention,
                   [order](const Params& a) {
                     return Params{a[order[0]], a[order[1]], a[order[2]], 0.0};
                   });
    }
  } while (std::next_permutation(order.begin(), order.end()));
}

void Suspects::add_quaternion_mistakes() {
  const auto* const first = first_of_type<EOQuaternion>();
  if (first == nullptr) return;
  Reading reading;
  reading.pose = [](const ExtOrientation& eo) {
    Pose pose{eo.projection_centre(), eo.rotation_matrix()};
    if (dynamic_cast<const EOQuaternion*>(&eo) != nullptr) {
      pose.rotation = eo.matrix_from_params({eo.value(6), eo.value(3), eo.value(4), eo.value(5)});
    }
    return pose;
  };
  add(FindingCode::rotation_suspect, "the scalar part of the quaternions comes last",
      "write the scalar part first", std::move(reading), {first, 0},
      {"image-geometry", first->id, {}, {}});
}

// Whether images fit better, and hardly any worse, by a factor that is no chance: of rough
// approximations a wrong reading improves some images and spoils others.
bool improves_all(const std::vector<StartRay>& rays, const Reading& reading) {
  std::map<const BundleImage*, std::array<std::vector<double>, 2>> images;
  for (const StartRay& ray : rays) {
    std::array<std::vector<double>, 2>& residuals = images[ray.image];
    residuals[0].push_back(residual(ray));
    residuals[1].push_back(residual(ray, reading));
  }
  std::size_t better = 0;
  std::size_t worse = 0;
  for (const auto& [image, residuals] : images) {
    const double before = median(residuals[0]);
    const double after = median(residuals[1]);
    if (after < kMatters * before) ++better;
    if (before < kMatters * after) ++worse;
  }
  return better >= kFewestImages && 3 * better >= images.size() &&
         static_cast<double>(better) >= kNearlyAll * static_cast<double>(better + worse);
}

// The one that explains the residuals best; null when none does.
const Mistake* best_of(const std::vector<Mistake>& mistakes, const std::vector<StartRay>& rays) {
  const double base = misfit(rays, {});
  if (base < kSound) return nullptr;
  double smallest = std::min(base < kDoubtful ? kExplainsWell * base : kExplains * base, kFits);
  smallest /= kClearer;
  const Mistake* best = nullptr;
  for (const Mistake& mistake : mistakes) {
    const double left = misfit(rays, mistake.reading);
    const bool explains = left < kClearer * smallest;
    const bool helps = best == nullptr && left < std::min(kExplainsAll * base, kFits);
    if (!explains && !(helps && improves_all(rays, mistake.reading))) continue;
    smallest = left;
    best = &mistake;
  }
  return best;
}

}  // namespace

bool find_mistake(const BundleProject& project, const std::vector<StartRay>& rays, bool axes_too,
                  FindingListener& findings) {
  if (rays.size() < kFewestRays) return false;
  const auto report = [&](const Mistake& mistake) {
    if (mistake.code != FindingCode::unit_suspect && !axes_too) return;
    add_finding(findings, mistake.code, mistake.place, mistake.object,
                "the measurements fit the approximations when " + mistake.what, mistake.help);
  };
  const std::vector<StartRay> sample = sample_of(rays);
  Suspects suspects(project, sample.front());
  suspects.add_measuring_mistakes();
  suspects.add_camera_mistakes();
  suspects.add_object_mistakes(sample);
  suspects.add_position_mistakes();
  suspects.add_angle_units();
  suspects.add_angle_signs();
  suspects.add_conventions();
  suspects.add_quaternion_mistakes();
  if (const Mistake* const mistake = best_of(suspects.mistakes(), sample)) {
    report(*mistake);
    return true;
  }
  // The control alone may be of another system than approximations of the other points, and of that
  // the fixed or the observed points alone.
  const auto is_control = [](const ObjectPoint& point) { return point.type == PointType::control; };
  const auto is_observed = [](const ObjectPoint& point) {
    return std::any_of(point.std_devs.begin(), point.std_devs.end(),
                       [](double sigma) { return ls_params().is_observed(sigma); });
  };
  const auto is_fixed = [&](const ObjectPoint& p) { return is_control(p) && !is_observed(p); };
  const std::array<std::function<bool(const ObjectPoint&)>, 3> kLists = {is_control, is_observed,
                                                                         is_fixed};
  std::size_t last = sample.size();
  for (const auto& belongs : kLists) {
    std::vector<StartRay> some;
    std::copy_if(sample.begin(), sample.end(), std::back_inserter(some),
                 [&](const StartRay& ray) { return belongs(*ray.object); });
    if (some.size() < kFewestRays || some.size() == last) continue;
    last = some.size();
    Suspects of_list(project, some.front());
    of_list.add_object_mistakes(some);
    const Mistake* const mistake = best_of(of_list.mistakes(), some);
    if (mistake == nullptr) continue;
    report(*mistake);
    return true;
  }
  return false;
}

}  // namespace vorn
