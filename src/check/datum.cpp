// What holds the datum: the motions that change no image, and what fixes each of them.

#include "check/datum.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <numbers>
#include <numeric>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "calibration/corrections.h"
#include "check/check.h"
#include "geometry/ext_orientation.h"

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
  for (const Vec3& place : places) extent = std::max(extent, length(place - frame.centre));
  // A single place has no extent but what rounding makes.
  const double size = length(frame.centre);
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

}  // namespace

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

}  // namespace vorn
