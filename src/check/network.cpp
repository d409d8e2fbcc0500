// The network: rays, what nothing determines, and what holds its datum.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>
#include <numeric>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "check/check.h"
#include "check/forecast.h"
#include "check/remaining_network.h"
#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "lsq/ls_params.h"

namespace vorn {
namespace {

std::string names_of(const std::vector<const BundleImage*>& images) {
  constexpr std::size_t kMost = 5;
  std::string text;
  for (std::size_t i = 0; i < std::min(images.size(), kMost); ++i) {
    text += (i == 0 ? "" : ", ") + printable(images[i]->id);
  }
  if (images.size() > kMost) text += " and " + std::to_string(images.size() - kMost) + " more";
  return text;
}

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

// ---- datum -------------------------------------------------------------------------------------

constexpr std::size_t kMotions = 7;
constexpr std::array<std::string_view, kMotions> kMotionNames = {
    "shift X",          "shift Y",          "shift Z", "rotation about X",
    "rotation about Y", "rotation about Z", "scale"};
using Motion = std::array<double, kMotions>;

// Directions among the seven motions that something holds: an orthogonal basis, built row by row
// (Gram and Schmidt). A row shorter than kSame behind its projection adds nothing.
class HeldMotions {
 public:
  void hold(Motion row) {
    const double length = norm(row);
    if (!(length > 0.0)) return;
    for (const Motion& base : bases_) subtract(row, base);
    for (const Motion& base : bases_) subtract(row, base);
    const double left = norm(row);
    if (left < kSame * length || bases_.size() == kMotions) return;
    for (double& element : row) element /= left;
    bases_.push_back(row);
  }
  bool holds_all() const { return bases_.size() == kMotions; }
  // Part of a motion that nothing holds, from 0 to 1.
  double open(std::size_t motion) const {
    double held = 0.0;
    for (const Motion& base : bases_) held += base[motion] * base[motion];
    return std::sqrt(std::max(0.0, 1.0 - held));
  }

 private:
  static constexpr double kSame = 1e-6;
  static double norm(const Motion& row) {
    return std::sqrt(std::inner_product(row.begin(), row.end(), row.begin(), 0.0));
  }
  static void subtract(Motion& row, const Motion& base) {
    const double part = std::inner_product(row.begin(), row.end(), base.begin(), 0.0);
    for (std::size_t k = 0; k < kMotions; ++k) row[k] -= part * base[k];
  }

  std::vector<Motion> bases_;
};

// Images that common points tie to one another, and what they have of control.
struct Component {
  std::vector<const BundleImage*> images;
  std::vector<const ObjectPoint*> points;
};

std::vector<Component> components_of(const RemainingNetwork& network) {
  std::unordered_map<const BundleImage*, std::size_t> number;
  for (const BundleImage* image : network.images()) number.emplace(image, number.size());
  std::vector<std::size_t> parent(number.size());
  std::iota(parent.begin(), parent.end(), std::size_t{0});
  const auto root = [&parent](std::size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
  };
  for (const RemainingNetwork::Point& point : network.points()) {
    if (!point.used) continue;
    std::size_t first = parent.size();
    for (const BundleImage* image : point.images) {
      const auto found = number.find(image);
      if (found == number.end()) continue;
      const std::size_t own = root(found->second);
      if (first == parent.size()) {
        first = own;
      } else {
        parent[own] = root(first);
      }
    }
  }
  std::map<std::size_t, std::size_t> place;  // of a root in the result
  std::vector<Component> components;
  for (const BundleImage* image : network.images()) {
    const auto [entry, added] = place.try_emplace(root(number.at(image)), components.size());
    if (added) components.emplace_back();
    components[entry->second].images.push_back(image);
  }
  for (const RemainingNetwork::Point& point : network.points()) {
    if (!point.used || point.object == nullptr) continue;
    for (const BundleImage* image : point.images) {
      const auto found = number.find(image);
      if (found == number.end()) continue;
      components[place.at(root(found->second))].points.push_back(point.object);
      break;
    }
  }
  return components;
}

bool corrects_freely(const auto* correction) {
  if (correction == nullptr) return false;
  for (const Vec3& row : correction->polynomial.coeff_std_devs) {
    if (is_free(row[0]) || is_free(row[1]) || is_free(row[2])) return true;
  }
  return false;
}

// How the coordinates of a place move under the motions about `centre`; lengths in units of
// `scale`, so that the elements are of one size.
Motion motion_of(const Vec3& place, std::size_t coordinate, const Vec3& centre, double scale) {
  const Vec3 d = (1.0 / scale) * (place - centre);
  Motion row{};
  row[coordinate] = 1.0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Vec3 about{};
    about[axis] = 1.0;
    row[3 + axis] = cross(about, d)[coordinate];
  }
  row[6] = d[coordinate];
  return row;
}

// How angle or quaternion parameter k moves when the whole is turned by a small angle about each
// axis: a difference quotient, since every parametrisation answers it.
Motion turn_of(const ExtOrientation& eo, std::int32_t k) {
  constexpr double kSmall = 1e-6;
  ExtOrientation::RotationParams params{};
  for (std::int32_t i = 3; i < eo.num_values(); ++i) {
    params[static_cast<std::size_t>(i - 3)] = eo.value(i);
  }
  const Mat3 r = eo.matrix_from_params(params);
  const ExtOrientation::RotationParams start = eo.params_from_matrix(r);
  Motion row{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Mat3 turned = r;
    for (std::size_t column = 0; column < 3; ++column) {
      Vec3 about{};
      about[axis] = kSmall;
      const Vec3 moved = cross(about, {r[0][column], r[1][column], r[2][column]});
      for (std::size_t i = 0; i < 3; ++i) turned[i][column] += moved[i];
    }
    const double change = eo.params_from_matrix(turned)[static_cast<std::size_t>(k - 3)] -
                          start[static_cast<std::size_t>(k - 3)];
    row[3 + axis] = std::remainder(change, 2.0 * std::numbers::pi) / kSmall;
  }
  return row;
}

// The centre of what is held, about which rotations and scale are open or not, and its extent.
struct Frame {
  Vec3 centre{};
  double scale = 1.0;
};

// Places with at least one held coordinate.
std::vector<Vec3> held_places(const Component& component) {
  std::vector<Vec3> places;
  for (const ObjectPoint* point : component.points) {
    if (!point->has_coords) continue;
    const Vec3& s = point->std_devs;
    if (!is_free(s[0]) || !is_free(s[1]) || !is_free(s[2])) places.push_back(point->xyz);
  }
  for (const BundleImage* image : component.images) {
    const auto* const eo = dynamic_cast<const ExtOrientation*>(image->geometry);
    if (eo == nullptr || corrects_freely(eo->pos_correction())) continue;
    if (is_free(eo->std_dev(0)) && is_free(eo->std_dev(1)) && is_free(eo->std_dev(2))) continue;
    places.push_back({eo->value(0), eo->value(1), eo->value(2)});
  }
  return places;
}

Frame frame_of(const std::vector<Vec3>& places) {
  Frame frame;
  if (places.empty()) return frame;
  for (const Vec3& place : places) {
    frame.centre = frame.centre + (1.0 / static_cast<double>(places.size())) * place;
  }
  double extent = 0.0;
  for (const Vec3& place : places) {
    const Vec3 d = place - frame.centre;
    extent = std::max(extent, std::sqrt(dot(d, d)));
  }
  // A single place has no extent but what rounding makes.
  const double size = std::sqrt(dot(frame.centre, frame.centre));
  frame.scale = extent > 1e-9 * size && extent > 0.0 ? extent : std::max(size, 1.0);
  return frame;
}

HeldMotions held_motions(const Component& component, const Frame& frame) {
  HeldMotions held;
  for (const ObjectPoint* point : component.points) {
    if (!point->has_coords || held.holds_all()) continue;
    for (std::size_t k = 0; k < 3; ++k) {
      if (is_free(point->std_devs[k])) continue;
      held.hold(motion_of(point->xyz, k, frame.centre, frame.scale));
    }
  }
  for (const BundleImage* image : component.images) {
    if (held.holds_all()) break;
    const auto* const eo = dynamic_cast<const ExtOrientation*>(image->geometry);
    if (eo == nullptr) {
      // The parameters of the linear models mix all motions: fixed ones hold them all.
      bool all_held = true;
      for (std::int32_t k = 0; k < image->geometry->num_values(); ++k) {
        all_held = all_held && !is_free(image->geometry->std_dev(k));
      }
      for (std::size_t motion = 0; all_held && motion < kMotions; ++motion) {
        Motion row{};
        row[motion] = 1.0;
        held.hold(row);
      }
      continue;
    }
    const Vec3 centre = {eo->value(0), eo->value(1), eo->value(2)};
    for (std::int32_t k = 0; k < 3 && !corrects_freely(eo->pos_correction()); ++k) {
      if (is_free(eo->std_dev(k))) continue;
      held.hold(motion_of(centre, static_cast<std::size_t>(k), frame.centre, frame.scale));
    }
    const bool turned_freely = eo->has_att_correction() && corrects_freely(eo->att_correction());
    for (std::int32_t k = 3; k < eo->num_values() && !turned_freely; ++k) {
      if (!is_free(eo->std_dev(k))) held.hold(turn_of(*eo, k));
    }
  }
  return held;
}

std::string open_motions(const HeldMotions& held) {
  constexpr double kOpen = 0.3;
  std::string text;
  for (std::size_t motion = 0; motion < kMotions; ++motion) {
    if (held.open(motion) < kOpen) continue;
    text += (text.empty() ? "" : ", ") + std::string(kMotionNames[motion]);
  }
  return text;
}

void check_datum(const RemainingNetwork& network, FindingListener& findings) {
  const std::vector<Component> components = components_of(network);
  for (const Component& component : components) {
    const HeldMotions held = held_motions(component, frame_of(held_places(component)));
    if (held.holds_all()) continue;
    const std::string open = open_motions(held);
    if (components.size() > 1) {
      const BundleImage& first = *component.images.front();
      add_finding(findings, FindingCode::islands, {&first, 0}, {"image", first.id, {}, {}},
                  "no common point ties the images " + names_of(component.images) +
                      " to the others, and nothing fixes their " + open,
                  "measure points that are measured in the other images, or give control");
    } else {
      findings.add({FindingCode::datum,
                    {},
                    0,
                    0,
                    {},
                    "nothing fixes " + open,
                    "give at least three control points that are not on one line, or fix "
                    "orientations"});
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
      const Vec3 d = object.xyz - eo->projection_centre();
      rays.push_back((1.0 / std::sqrt(dot(d, d))) * d);
    }
    if (rays.size() != point.images.size() || rays.size() < 2) continue;
    double widest = 0.0;
    for (const Vec3& ray : rays) {
      const Vec3 normal = cross(rays.front(), ray);
      widest = std::max(widest, std::sqrt(dot(normal, normal)));
    }
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
