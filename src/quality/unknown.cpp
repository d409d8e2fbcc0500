#include "quality/unknown.h"

#include <array>
#include <span>

#include "calibration/ap_set.h"
#include "calibration/corrections.h"
#include "geometry/eo_quaternion.h"
#include "geometry/ext_orientation.h"
#include "geometry/linear_geometries.h"
#include "sensors/object_point.h"

namespace vorn {
namespace {

// Degree in metres of the terms of a model whose parameters are numbered: parameters up to `last`
// (counted from 1) have terms of the degree.
struct TermDegree {
  std::int32_t last;
  int degree;
};
constexpr TermDegree kInPlane[] = {{2, 1}, {4, 2}, {6, 3}, {7, 4}, {9, 2}, {11, 3}, {12, 4}};
constexpr TermDegree kOutOfPlane[] = {{1, 2}, {3, 4}};
constexpr TermDegree kP12[] = {{2, 1}, {6, 2}, {10, 3}, {12, 4}};
constexpr TermDegree kP44[] = {{2, 1},  {6, 2},  {14, 3}, {24, 4},
                               {32, 5}, {38, 6}, {42, 7}, {44, 8}};

int degree_in(std::span<const TermDegree> degrees, std::int32_t number) {
  for (const TermDegree& range : degrees) {
    if (number <= range.last) return range.degree;
  }
  return 1;
}

// Degree in metres of the image-point terms that a parameter of a set is the factor of.
int term_degree(const APSet& set, std::int32_t k) {
  const std::string_view model = set.get_keyword();
  if (model == "in-plane-dist") return degree_in(kInPlane, k + 1);
  if (model == "out-of-plane-dist") return degree_in(kOutOfPlane, k + 1);
  if (model == "p12") return degree_in(kP12, k + 1);
  if (model == "p44") return degree_in(kP44, k + 1);
  const std::string name = set.get_param_name(k);
  if (name == "dxp" || name == "dyp" || name == "dc") return 0;
  if (name[0] == 'K') return 2 * (name[1] - '0') + 1;
  if (name[0] == 'P') return 2;
  return 1;  // affinity and shear
}

// "m" to a power, over seconds to a power.
std::string unit_of_powers(int metres, int seconds) {
  const auto power = [](std::string_view unit, int exponent) {
    return std::string(unit) + (exponent > 1 ? std::to_string(exponent) : std::string());
  };
  if (metres < 0) return "1/" + power("m", -metres);
  const std::string base = metres > 0 ? power("m", metres) : std::string("1");
  return seconds > 0 ? base + "/" + power("s", seconds) : base;
}

std::string unit_of_geometry(const AdjObject& geometry, std::int32_t k) {
  if (dynamic_cast<const ExtOrientation*>(&geometry) != nullptr) {
    if (k < 3) return "m";
    return dynamic_cast<const EOQuaternion*>(&geometry) != nullptr ? "1" : "rad";
  }
  if (dynamic_cast<const DirectLinearTransf*>(&geometry) != nullptr) {
    if (k == 3 || k == 7) return "m";
    return k >= 8 ? "1/m" : "1";
  }
  return k % 4 == 0 ? "m" : "1";  // a0, b0 of the parallel projection
}

}  // namespace

ObjectType object_type_of(const AdjObject& object) {
  if (dynamic_cast<const ObjectPoint*>(&object) != nullptr) return ObjectType::object_point;
  if (dynamic_cast<const ImageGeometry*>(&object) != nullptr) return ObjectType::orientation;
  if (dynamic_cast<const APSet*>(&object) != nullptr) return ObjectType::ap_set;
  if (dynamic_cast<const PosCorrection*>(&object) != nullptr) {
    return ObjectType::position_correction;
  }
  return ObjectType::attitude_correction;
}

std::string_view object_type_name(ObjectType type) {
  constexpr std::array<std::string_view, kNumObjectTypes> kNames = {
      "object_point", "orientation", "ap_set", "position_correction", "attitude_correction"};
  return kNames[static_cast<std::size_t>(type)];
}

std::string parameter_name(const Unknown& unknown) {
  if (object_type_of(*unknown.object) == ObjectType::object_point) {
    return std::string(1, "XYZ"[unknown.k]);
  }
  return unknown.object->get_param_name(unknown.k);
}

std::string parameter_unit(const Unknown& unknown) {
  const auto [object, k] = unknown;
  switch (object_type_of(*object)) {
    case ObjectType::object_point:
      return "m";
    case ObjectType::orientation:
      return unit_of_geometry(*object, k);
    case ObjectType::ap_set:
      return unit_of_powers(1 - term_degree(static_cast<const APSet&>(*object), k), 0);
    case ObjectType::position_correction:
      return unit_of_powers(1, k / 3);
    case ObjectType::attitude_correction:
      break;
  }
  const std::string per_time = unit_of_powers(0, k / 3);
  return k < 3 ? "rad" : "rad" + per_time.substr(1);
}

std::string_view state_word(ParamState state) {
  constexpr std::array<std::string_view, 3> kWords = {"unknown", "observed", "fixed"};
  return kWords[static_cast<std::size_t>(state)];
}

}  // namespace vorn
