// The network: rays, what nothing determines, and what is weak.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/datum.h"
#include "check/forecast.h"
#include "check/remaining_network.h"
#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "lsq/ls_params.h"

namespace vorn {
namespace {

// ---- rays --------------------------------------------------------------------------------------

void check_rays(const RemainingNetwork& network, FindingListener& findings) {
  for (const RemainingNetwork::Point& point : network.points()) {
    if (point.used) continue;
    const BundleImage& image = *point.images.front();
    // A point that no file gives coordinates stands where it was measured.
    const void* const key = point.object != nullptr
                                ? static_cast<const void*>(point.object)
                                : static_cast<const void*>(image.points.find(point.id));
    add_finding(findings, FindingCode::rays, {key, 0},
                {"image-point", std::string(point.id), image.id, {}},
                "point " + printable(point.id) + " is measured in image " + printable(image.id) +
                    " only; a run removes it");
  }
  for (const auto& [image, left] : network.removed()) {
    add_finding(findings, FindingCode::rays, {image, 0}, {"image", image->id, {}, {}},
                "image " + printable(image->id) + " has " + std::to_string(left) +
                    " points that other images see too; a run removes it",
                "measure at least three points that are measured elsewhere");
  }
}

// ---- what nothing determines -------------------------------------------------------------------

// Effects of the models by their physical meaning; models that share one cannot be told apart.
std::vector<std::string> effects_of(const APSet& set) {
  std::vector<std::string> effects;
  const bool grid = set.get_keyword() == "p12" || set.get_keyword() == "p44";
  const bool terms = set.get_keyword() == "in-plane-dist";
  for (std::int32_t k = 0; k < set.num_ap(); ++k) {
    if (!is_free(set.std_dev(k))) continue;
    const std::string name = set.get_param_name(k);
    effects.push_back(grid || terms ? std::string(set.get_keyword()) + ' ' + name : name);
  }
  return effects;
}

void check_sets(const BundleProject& project, const RemainingNetwork& network,
                FindingListener& findings) {
  std::map<const Camera*, std::map<std::string, const APSet*>> effects;
  for (const APSet& set : project.ap_sets) {
    const Camera* const camera = project.cameras.find(set.camera_id);
    const std::vector<std::string> free = effects_of(set);
    if (free.empty()) continue;
    const bool sees =
        std::any_of(network.images().begin(), network.images().end(),
                    [=](const BundleImage* image) { return image->camera == camera; });
    const FindingObject object{"ap-set", set.id, {}, {}};
    if (!sees) {
      add_finding(findings, FindingCode::undetermined, {&set, 0}, object,
                  "the free parameters of ap set " + printable(set.id) +
                      " are undetermined: its camera " + printable(set.camera_id) +
                      " takes part in no image",
                  "remove the set, or fix its parameters (standard deviation 1e-31)");
      continue;
    }
    for (const std::string& effect : free) {
      const auto [entry, added] = effects[camera].try_emplace(effect, &set);
      if (added) continue;
      add_finding(findings, FindingCode::undetermined, {&set, 0}, object,
                  "ap sets " + printable(entry->second->id) + " and " + printable(set.id) +
                      " of camera " + printable(set.camera_id) + " both have " + effect + " free",
                  "remove one of the two sets, or fix the parameter in one of them");
      break;
    }
  }
}

void check_orientations(const BundleProject& project, const RemainingNetwork& network,
                        FindingListener& findings) {
  for (const ImageGeometry& geometry : project.image_geometries) {
    if (!geometry.used) continue;  // a run removes it
    bool free = false;
    for (std::int32_t k = 0; k < geometry.num_values(); ++k) {
      free = free || is_free(geometry.std_dev(k));
    }
    const bool sees =
        std::any_of(network.images().begin(), network.images().end(),
                    [&](const BundleImage* image) { return image->geometry == &geometry; });
    if (!free || sees) continue;
    add_finding(findings, FindingCode::undetermined, {&geometry, 0},
                {"image-geometry", geometry.id, {}, {}},
                "image geometry " + printable(geometry.id) +
                    " is undetermined: the image that uses it has too few points and is removed",
                "remove the image and its orientation from the project");
  }
}

// A correction holds what its orientations leave fixed; `first` is the first of the three
// parameters that it corrects.
template <class Correction>
void check_corrections(const RemainingNetwork& network, const OwnedList<Correction>& list,
                       std::string_view type, std::int32_t first, const auto& held_by,
                       FindingListener& findings) {
  for (const Correction& correction : list) {
    if (!correction.used) continue;
    bool free = false;
    std::array<bool, 3> free_offset{};
    for (std::size_t k = 0; k < correction.polynomial.coeff_std_devs.size(); ++k) {
      for (std::size_t c = 0; c < 3; ++c) {
        const bool is = is_free(correction.polynomial.coeff_std_devs[k][c]);
        free = free || is;
        if (k == 0) free_offset[c] = is;
      }
    }
    if (!free) continue;
    bool seen = false;
    std::array<bool, 3> all_free = {true, true, true};
    for (const BundleImage* image : network.images()) {
      const auto* const eo = dynamic_cast<const ExtOrientation*>(image->geometry);
      if (eo == nullptr || held_by(*eo) != &correction) continue;
      seen = true;
      for (std::int32_t c = 0; c < 3; ++c) {
        bool& component = all_free[static_cast<std::size_t>(c)];
        component = component && is_free(eo->std_dev(first + c));
      }
    }
    const FindingObject object{std::string(type), correction.id, {}, {}};
    if (!seen) {
      add_finding(findings, FindingCode::undetermined, {&correction, 0}, object,
                  "the correction " + printable(correction.id) +
                      " is undetermined: no image that takes part has it (an orientation has the "
                      "last one that names it)");
      continue;
    }
    for (std::size_t c = 0; c < 3; ++c) {
      if (!free_offset[c] || !all_free[c]) continue;
      add_finding(findings, FindingCode::undetermined, {&correction, 0}, object,
                  "the free correction " + printable(correction.id) +
                      " corrects orientations that are free themselves",
                  "fix the orientations (standard deviation 1e-31), or the correction");
      break;
    }
  }
}

// ---- weak geometry -----------------------------------------------------------------------------

// Control that nearly lies on a line, where nothing else holds the turn about it.
void check_control_line(const BundleProject& project, const RemainingNetwork& network,
                        FindingListener& findings) {
  constexpr double kThin = 0.01;  // width by length
  std::vector<const ObjectPoint*> control;
  for (const RemainingNetwork::Point& point : network.points()) {
    if (point.used && point.object != nullptr && point.object->has_coords &&
        point.object->type == PointType::control) {
      control.push_back(point.object);
    }
  }
  for (const ImageGeometry& geometry : project.image_geometries) {
    for (std::int32_t k = 0; k < geometry.num_values(); ++k) {
      if (!is_free(geometry.std_dev(k))) return;
    }
  }
  if (control.size() < 3) return;
  double length = 0.0;
  Vec3 along{};
  for (const ObjectPoint* point : control) {
    const Vec3 d = point->xyz - control.front()->xyz;
    if (dot(d, d) <= length) continue;
    length = dot(d, d);
    along = d;
  }
  if (!(length > 0.0)) return;
  double width = 0.0;
  for (const ObjectPoint* point : control) {
    const Vec3 off = cross(along, point->xyz - control.front()->xyz);
    width = std::max(width, std::sqrt(dot(off, off) / length));
  }
  if (width > kThin * std::sqrt(length)) return;
  add_finding(findings, FindingCode::geometry_weak, {control.front(), 0},
              {"object-point", control.front()->id, {}, {}},
              "the control points lie nearly on one line",
              "give control on both sides of the line through the present points");
}

// Points whose rays are all nearly parallel.
void check_ray_angles(const RemainingNetwork& network, FindingListener& findings) {
  constexpr double kParallel = 0.003;  // sine of the largest angle between two rays
  for (const RemainingNetwork::Point& point : network.points()) {
    if (!point.used || point.object == nullptr || !point.object->has_coords) continue;
    const ObjectPoint& object = *point.object;
    if (!is_free(object.std_devs[0]) && !is_free(object.std_devs[1]) &&
        !is_free(object.std_devs[2])) {
      continue;
    }
    std::vector<Vec3> rays;
    for (const BundleImage* image : point.images) {
      const auto* const eo = dynamic_cast<const ExtOrientation*>(image->geometry);
      if (eo == nullptr) break;
      rays.push_back(unit(object.xyz - eo->projection_centre()));
    }
    if (rays.size() != point.images.size() || rays.size() < 2) continue;
    double widest = 0.0;
    for (const Vec3& ray : rays) widest = std::max(widest, length(cross(rays.front(), ray)));
    if (!(widest < kParallel)) continue;
    add_finding(findings, FindingCode::geometry_weak, {&object, 0},
                {"object-point", object.id, {}, {}},
                "all rays of point " + printable(object.id) + " are nearly parallel");
  }
}

// Whether the coordinates themselves are suspected, so that what they look like says nothing.
bool approximations_are_doubtful(const FindingList& findings) {
  const std::vector<Finding> found = findings.findings();
  return std::any_of(found.begin(), found.end(), [](const Finding& finding) {
    return finding.code == FindingCode::unit_suspect || finding.code == FindingCode::axes_suspect ||
           finding.code == FindingCode::rotation_suspect;
  });
}

void check_geometry(const BundleProject& project, const RemainingNetwork& network,
                    FindingList& findings) {
  check_rays(network, findings);
  check_orientations(project, network, findings);
  check_sets(project, network, findings);
  check_corrections(
      network, project.pos_corrections, "pos-correction", 0,
      [](const ExtOrientation& eo) { return eo.pos_correction(); }, findings);
  check_corrections(
      network, project.att_corrections, "att-correction", 3,
      [](const ExtOrientation& eo) { return eo.att_correction(); }, findings);
  // What follows from a singular system is no finding of its own.
  if (findings.has_errors()) return;
  check_datum(network, findings);
  if (findings.has_errors()) return;
  if (approximations_are_doubtful(findings)) return;
  check_control_line(project, network, findings);
  check_ray_angles(network, findings);
}

}  // namespace

void check_network(BundleProject& project, FindingList& findings) {
  const RemainingNetwork network(project);
  if (!findings.has_errors()) check_geometry(project, network, findings);
  add_forecast(project, network, findings);
}

}  // namespace vorn
