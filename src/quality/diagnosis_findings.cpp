#include "quality/diagnosis_findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <utility>

#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "lsq/ls_params.h"
#include "lsq/stages/observation_equations.h"
#include "lsq/stages/point_rays.h"
#include "quality/diagnosis_algebra.h"
#include "quality/diagnosis_rays.h"
#include "quality/unknown.h"
#include "text/number_format.h"

namespace vorn {
namespace {

constexpr std::size_t kNamed = 6;  // of many objects in one sentence

std::string_view type_in_words(std::string_view type) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kWords = {
      {{"object_point", "point"},
       {"ap_set", "AP set"},
       {"position_correction", "position correction"},
       {"attitude_correction", "attitude correction"},
       {"orientation", "orientation"}}};
  for (const auto& [name, words] : kWords) {
    if (type == name) return words;
  }
  return type;
}

// "a", "a and b", "a, b and 5 more".
std::string enumerated(const std::vector<std::string>& names) {
  std::string text;
  const std::size_t named = names.size() > kNamed ? kNamed - 1 : names.size();
  for (std::size_t i = 0; i < named; ++i) {
    const bool last = i + 1 == names.size();
    text += (i == 0 ? "" : last ? " and " : ", ") + names[i];
  }
  if (named < names.size()) text += " and " + std::to_string(names.size() - named) + " more";
  return text;
}

// Identifiers behind the word for their type: "point 17", "points 17, 18 and 19".
std::string counted(std::string_view type, const std::vector<std::string>& ids) {
  std::string text(type_in_words(type));
  if (ids.size() > 1) text += 's';
  return text + ' ' + enumerated(ids);
}

std::vector<std::string> ids_of(const std::vector<DiagnosedItem>& items) {
  std::vector<std::string> ids;
  for (const DiagnosedItem& item : items) ids.push_back(item.object_id);
  return ids;
}

bool is_held(const AdjObject& object, std::int32_t k) {
  return object.param(k).state != ParamState::unknown;
}

}  // namespace

std::string in_words(const DiagnosedItem& item) {
  const std::string object = std::string(type_in_words(item.object_type)) + ' ' + item.object_id;
  return item.parameter.empty() ? object : item.parameter + " of " + object;
}

// ---- removed and unobserved --------------------------------------------------------------------

namespace {

// Why nothing depends on an object, and what helps.
std::pair<std::string, std::string> reason_of(const BundleProject& project,
                                              const AdjObject& object) {
  for (const RemovedImage& image : project.removals.images) {
    if (image.geometry_id == object.id && object_type_of(object) == ObjectType::orientation) {
      return {"its image " + image.id + " was removed, having " + std::to_string(image.num_points) +
                  " points",
              "Measure at least three points in image " + image.id +
                  ", or take the image and its orientation out of the files"};
    }
  }
  switch (object_type_of(object)) {
    case ObjectType::ap_set:
      return {"no image was taken with its camera",
              "Remove the set, or fix its parameters (standard deviation 1e-31)"};
    case ObjectType::position_correction:
    case ObjectType::attitude_correction:
      return {"none of its orientations belongs to an image with points",
              "Remove the correction, or fix its coefficients (standard deviation 1e-31)"};
    case ObjectType::object_point:
      return {"all images that measured it were removed",
              "Remove the point, or measure more points in its images"};
    case ObjectType::orientation:
      break;
  }
  return {"it has no image with points",
          "Remove the orientation, or fix it (standard deviation 1e-31)"};
}

void find_removed(const BundleProject& project, Diagnosis& diagnosis) {
  for (const RemovedImage& image : project.removals.images) {
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "too_few_points";
    finding.severity = FindingSeverity::warning;
    finding.objects = {{"image", image.id, {}}};
    finding.message = "Image " + image.id + " was removed: it has " +
                      std::to_string(image.num_points) + " points, and three are needed.";
    finding.remedy = "Measure more points in it, or take it out of the image file.";
    finding.values = {{"points", image.num_points}};
  }
  for (const RemovedPoint& point : project.removals.points) {
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "too_few_rays";
    finding.severity = FindingSeverity::info;
    finding.objects = {{"object_point", point.id, {}}};
    finding.message =
        "Point " + point.id + " was removed: " +
        (point.num_rays == 0 ? "no image measures it." : "only one image measures it.");
    finding.remedy = "Measure it in another image, if it is needed.";
    finding.values = {{"rays", point.num_rays}};
  }
}

}  // namespace

void find_unobserved(const BundleProject& project, const DiagnosedSystem& system,
                     Diagnosis& diagnosis) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    std::vector<DiagnosedItem> items;
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      if (system.role(object.index + k) == UnknownRole::unobserved) {
        items.push_back(item_of({&object, k}));
      }
    }
    if (items.empty()) continue;
    bool seen = false;
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      seen = seen || system.image_weight(object.index + k) > 0.0;
    }
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "no_observations";
    finding.severity = FindingSeverity::error;
    finding.values = {{"unknowns", static_cast<double>(items.size())}};
    std::vector<std::string> names;
    for (const DiagnosedItem& item : items) names.push_back(item.parameter);
    const std::string whole = in_words(item_of(object));
    if (seen) {
      finding.message = "No observation depends on " + enumerated(names) + " of " + whole + ".";
      finding.remedy = "Fix what is not needed (standard deviation 1e-31).";
    } else {
      const auto [reason, remedy] = reason_of(project, object);
      finding.message = "No observation depends on " + whole + ": " + reason + ".";
      finding.remedy = remedy + ".";
    }
    finding.objects = std::move(items);
  }
  find_removed(project, diagnosis);
}

// ---- intersections -----------------------------------------------------------------------------

namespace {

// The smallest eigenvalue of a point's block of N scaled to a unit diagonal.
double smallest_eigenvalue(const ObjectPoint& point, const NormalMatrix& normal) {
  Matrix block(3, 3);
  const std::int32_t u = point.index;
  for (std::int32_t i = 0; i < 3; ++i) {
    for (std::int32_t j = i; j < 3; ++j) {
      const double scale = normal.at(u + i, u + i) * normal.at(u + j, u + j);
      block[i][j] = normal.at(u + i, u + j) / std::sqrt(scale);
    }
  }
  return eigen_of_symmetric(std::move(block)).values[0];
}

// Where the rays of a point come from, and how precise their directions are [rad]. No places where
// an image has no projection centre.
struct RayBundle {
  std::vector<Vec3> places;
  double precision = 0.0;
};
RayBundle bundle_of(std::span<const Ray> rays) {
  RayBundle bundle;
  for (const Ray& ray : rays) {
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(ray.image->geometry);
    if (orientation == nullptr) return {};
    bundle.places.push_back(orientation->projection_centre());
    const Camera& camera = *ray.image->camera;
    const Pair sdev = camera.sdev_to_image({ray.point->sx, ray.point->sy});
    bundle.precision = std::max({bundle.precision, sdev[0] / camera.c, sdev[1] / camera.c});
  }
  return bundle;
}

DiagnosisFinding weak_intersection(const ObjectPoint& point, std::size_t rays, double angle,
                                   bool useless) {
  DiagnosisFinding finding;
  finding.code = "weak_intersection";
  finding.severity = useless ? FindingSeverity::error : FindingSeverity::warning;
  finding.objects = {item_of(point)};
  const std::string name = "Point " + point.id;
  if (rays < 2) {
    finding.message = name + " has a single ray left, which does not determine it.";
    finding.remedy = "Measure it in another image, or remove it.";
  } else {
    finding.message =
        useless ? "The rays of point " + point.id + " coincide: its place along them is open."
                : name + " is intersected under less than one degree.";
    finding.remedy = "Measure it from another place, remove it, or give it observed coordinates.";
  }
  finding.values = {{"rays", static_cast<double>(rays)}};
  if (std::isfinite(angle)) finding.values.emplace_back("angle", angle);
  return finding;
}

}  // namespace

void find_weak_intersections(const BundleProject& project, DiagnosedSystem& system,
                             Diagnosis& diagnosis) {
  constexpr double kOneDegree = std::numbers::pi / 180;
  constexpr double kSingular = 1e-13;
  const PointRays rays(project.images, project.object_points);
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const ObjectPoint* const point = project.object_points[slot];
    if (point == nullptr) continue;
    if (is_held(*point, 0) && is_held(*point, 1) && is_held(*point, 2)) continue;
    bool observed = true;
    for (std::int32_t k = 0; k < 3; ++k) {
      observed = observed && system.role(point->index + k) != UnknownRole::unobserved;
    }
    if (!observed) continue;
    const RayBundle bundle = bundle_of(rays[slot]);
    const double angle = bundle.places.empty() ? std::numeric_limits<double>::quiet_NaN()
                                               : largest_angle(point->xyz, bundle.places);
    // Negated, so that what is not a number counts as singular.
    const bool singular = !(smallest_eigenvalue(*point, system.normal()) > kSingular);
    if (!singular && !(angle < kOneDegree)) continue;
    if (singular) {
      for (std::int32_t k = 0; k < 3; ++k) system.pin(point->index + k);
    }
    const bool useless = singular || angle < 3 * bundle.precision;
    diagnosis.findings.push_back(weak_intersection(*point, rays[slot].size(), angle, useless));
  }
}

// ---- datum -------------------------------------------------------------------------------------

namespace {

// What a part of the network has to hold its datum with.
struct Holders {
  std::vector<DiagnosedItem> points;
  std::vector<DiagnosedItem> orientations;
  std::vector<Vec3> places;  // of the points
  bool in_plan = false;
};
Holders holders_of(const NetworkPart& part) {
  Holders holders;
  for (const ObjectPoint* point : part.points) {
    const bool plan = is_held(*point, 0) || is_held(*point, 1);
    if (!plan && !is_held(*point, 2)) continue;
    holders.points.push_back(item_of(*point));
    holders.places.push_back(point->xyz);
    holders.in_plan = holders.in_plan || plan;
  }
  for (const ImageGeometry* geometry : part.geometries) {
    for (std::int32_t k = 0; k < geometry->num_values(); ++k) {
      if (!is_held(*geometry, k)) continue;
      holders.orientations.push_back(item_of(*geometry));
      break;
    }
  }
  return holders;
}

std::string number(double value) {
  constexpr NumberFormat kFormat = fixed(3);
  char text[max_length(kFormat)];
  return {text, write_number(text, value, kFormat)};
}

std::string place_in_words(const Vec3& place) {
  std::string text = "(";
  for (std::size_t k = 0; k < 3; ++k) text += (k == 0 ? "" : ", ") + number(place[k]);
  return text + ")";
}

std::string axis_in_words(const Vec3& axis) {
  for (std::size_t k = 0; k < 3; ++k) {
    constexpr double kAlong = 1.0 - 1e-9;
    if (axis[k] > kAlong) return std::string(1, "XYZ"[k]);
  }
  return place_in_words(axis);
}

// "shift along X, rotation about Z and scale".
std::string motions_in_words(const NetworkComponent& component) {
  if (component.defect == static_cast<std::int32_t>(kNumMotions)) {
    return "all shifts, all rotations and the scale";
  }
  std::vector<std::string> names;
  for (const FreeMotion& motion : component.motions) {
    const std::string axis = axis_in_words(motion.axis);
    switch (motion.kind) {
      case MotionKind::translation:
        names.push_back("the shift along " + axis);
        break;
      case MotionKind::rotation:
        names.push_back("the rotation about " + axis + " through " +
                        place_in_words(motion.through));
        break;
      case MotionKind::scale:
        names.emplace_back("the scale");
        break;
      case MotionKind::similarity:
        names.push_back("a rotation about " + axis + " together with a change of scale");
        break;
    }
  }
  return enumerated(names);
}

constexpr double kOnLine = 1e-6;    // across by along a line: control on it
constexpr double kNearLine = 0.01;  // the same, nearly so

std::string_view code_of(const Holders& holders) {
  if (holders.points.empty() && holders.orientations.empty()) return "no_control";
  if (!holders.orientations.empty()) return "insufficient_control";
  if (!holders.in_plan) return "heights_only";
  if (holders.points.size() == 1) return "one_control_point";
  if (holders.points.size() == 2) return "two_control_points";
  if (spread_of(holders.places).across() < kOnLine) return "collinear_control";
  return "insufficient_control";
}

struct DatumWords {
  std::string_view code;
  std::string_view message;
  std::string_view remedy;
};
constexpr std::array<DatumWords, 6> kDatumWords = {{
    {"no_control", "Nothing holds the datum",
     "Give at least three points that are not on one line coordinates with standard deviations, or "
     "observe orientations"},
    {"one_control_point", "Control in one point does not hold the datum",
     "Add two control points that are not on one line with it"},
    {"two_control_points", "Control in two points does not hold the datum",
     "Add a third control point, at least its height, off the line of the two"},
    {"heights_only", "Control in height alone does not hold the datum",
     "Add at least two points with control in plan"},
    {"collinear_control", "Control points on one line do not hold the datum",
     "Add a control point off the line"},
    {"insufficient_control", "Control does not hold the datum",
     "Add control that stops these motions"},
}};

std::string part_in_words(const NetworkPart& part, bool alone) {
  if (alone) return "the network";
  std::vector<std::string> names;
  for (const BundleImage* image : part.images) names.push_back(image->id);
  return "the part with image" + std::string(names.size() > 1 ? "s " : " ") + enumerated(names);
}

void find_datum_defect(const NetworkPart& part, const NetworkComponent& component, bool alone,
                       Diagnosis& diagnosis) {
  Holders holders = holders_of(part);
  const std::string_view code = code_of(holders);
  const DatumWords& words = *std::find_if(kDatumWords.begin(), kDatumWords.end(),
                                          [&](const DatumWords& w) { return w.code == code; });
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  finding.code = code;
  finding.component = component.component;
  finding.defect = component.defect;
  finding.objects = std::move(holders.points);
  std::string held_by;
  if (!finding.objects.empty())
    held_by = " (" + counted("object_point", ids_of(finding.objects)) + ")";
  finding.objects.insert(finding.objects.end(), holders.orientations.begin(),
                         holders.orientations.end());
  finding.message = std::string(words.message) + held_by + " of " + part_in_words(part, alone) +
                    ": free " + (component.defect == 1 ? "is " : "are ") +
                    motions_in_words(component) + ".";
  finding.remedy = std::string(words.remedy) + ".";
  finding.values = {{"smallest_quotient", component.quotients[0]}};
}

// Control that is not quite on a line holds the datum, but badly.
void find_near_line(const NetworkPart& part, const NetworkComponent& component,
                    Diagnosis& diagnosis) {
  Holders holders = holders_of(part);
  if (!holders.orientations.empty() || holders.points.size() < 3) return;
  const double across = spread_of(holders.places).across();
  if (!(across < kNearLine)) return;
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  finding.code = "collinear_control";
  finding.severity = FindingSeverity::warning;
  finding.component = component.component;
  finding.defect = 0;
  finding.message = "The control (" + counted("object_point", ids_of(holders.points)) +
                    ") is nearly on one line: the rotation about it is weak.";
  finding.objects = std::move(holders.points);
  finding.remedy = "Add a control point off the line.";
  finding.values = {{"across_by_along", across}};
}

}  // namespace

void find_datum_defects(const Network& network, Diagnosis& diagnosis) {
  const std::vector<NetworkPart>& parts = network.parts();
  const bool alone = parts.size() == 1;
  bool defective = false;
  for (std::size_t p = 0; p < parts.size(); ++p) {
    const NetworkComponent& component = diagnosis.components[p];
    if (component.defect > 0) {
      find_datum_defect(parts[p], component, alone, diagnosis);
      defective = true;
    } else {
      find_near_line(parts[p], component, diagnosis);
    }
  }
  if (parts.size() < 2) return;
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  finding.code = "separate_blocks";
  finding.severity = defective ? FindingSeverity::error : FindingSeverity::warning;
  for (const NetworkPart& part : parts) {
    for (const BundleImage* image : part.images)
      finding.objects.push_back({"image", image->id, {}});
  }
  finding.message = "The images fall apart into " + std::to_string(parts.size()) +
                    " parts that no measured point ties together.";
  finding.remedy =
      "Measure points that images of both parts see, or give each part its own control.";
  finding.values = {{"count", static_cast<double>(parts.size())}};
}

// ---- inseparable parameters --------------------------------------------------------------------

namespace {

// Unknowns of one kind that a direction moves.
struct MovedGroup {
  double share = 0.0;
  std::vector<std::pair<double, DiagnosedItem>> items;  // by share, descending

  std::string in_words() const {
    std::vector<std::string> ids;
    for (const auto& item : items) ids.push_back(item.second.object_id);
    return items.front().second.parameter + " of " + counted(items.front().second.object_type, ids);
  }
};

// The groups of the unknowns that make up a direction, by their largest share.
std::vector<MovedGroup> moved_groups(const UnknownNames& names, const WeakDirection& direction) {
  constexpr double kNoShare = 1e-8;
  std::map<std::pair<std::string, std::string>, MovedGroup> groups;
  for (std::size_t u = 0; u < direction.elements.size(); ++u) {
    const double share = direction.share(u);
    if (!(share > kNoShare)) continue;
    DiagnosedItem item = names.item(static_cast<std::int32_t>(u));
    MovedGroup& group = groups[{item.object_type, item.parameter}];
    group.share += share;
    group.items.emplace_back(share, std::move(item));
  }
  constexpr double kMatters = 0.02;
  std::vector<MovedGroup> sorted;
  for (auto& [key, group] : groups) {
    if (group.share < kMatters) continue;
    std::stable_sort(group.items.begin(), group.items.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const double least = 0.05 * group.items.front().first;
    std::erase_if(group.items, [&](const auto& item) { return item.first < least; });
    sorted.push_back(std::move(group));
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const MovedGroup& a, const MovedGroup& b) {
    return a.items.front().first > b.items.front().first;
  });
  return sorted;
}

std::string remedy_for(const std::vector<MovedGroup>& groups) {
  bool sets = false;
  bool corrections = false;
  bool geometry = false;
  for (const MovedGroup& group : groups) {
    const std::string& type = group.items.front().second.object_type;
    sets = sets || type == "ap_set";
    corrections = corrections || type.ends_with("_correction");
    geometry = geometry || type == "orientation" || type == "object_point";
  }
  if (corrections) {
    return "Fix the orientations (standard deviation 1e-31) or observe them, or fix coefficients "
           "of the correction.";
  }
  if (sets && !geometry) {
    return "Keep one of these parameters and fix the others (standard deviation 1e-31).";
  }
  if (sets) {
    return "Fix or observe the additional parameter, or add what separates them: differences of "
           "height, tilted images, images turned by 90 degrees, control.";
  }
  return "Measure more points that tie these images to the others, well spread, or observe their "
         "orientations.";
}

}  // namespace

void find_inseparable(const UnknownNames& names, const std::vector<WeakDirection>& directions,
                      double below, Diagnosis& diagnosis) {
  constexpr std::size_t kMostObjects = 24;
  for (const WeakDirection& direction : directions) {
    if (!(direction.eigenvalue < below)) continue;
    const std::vector<MovedGroup> groups = moved_groups(names, direction);
    if (groups.empty()) continue;
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "inseparable_parameters";
    std::vector<std::string> words;
    for (const MovedGroup& group : groups) {
      words.push_back(group.in_words());
      for (const auto& [share, item] : group.items) {
        if (finding.objects.size() < kMostObjects) finding.objects.push_back(item);
      }
    }
    finding.message = words.size() > 1
                          ? "The observations cannot tell " + words.front() + " from " +
                                enumerated({words.begin() + 1, words.end()}) + "."
                          : "The observations do not determine " + words.front() + ".";
    finding.remedy = remedy_for(groups);
    finding.values = {{"eigenvalue", direction.eigenvalue}};
  }
}

void find_correlated(const UnknownNames& names, const std::vector<StrongCorrelation>& correlations,
                     Diagnosis& diagnosis) {
  const std::vector<DiagnosisFinding> earlier = diagnosis.findings;
  const auto is_named = [&](const DiagnosedItem& item) {
    return std::any_of(earlier.begin(), earlier.end(), [&](const DiagnosisFinding& finding) {
      return finding.code == "inseparable_parameters" &&
             std::find(finding.objects.begin(), finding.objects.end(), item) !=
                 finding.objects.end();
    });
  };
  std::map<std::int32_t, DiagnosisFinding> by_parameter;
  for (const StrongCorrelation& correlation : correlations) {
    const DiagnosedItem a = names.item(correlation.a);
    const DiagnosedItem b = names.item(correlation.b);
    if (is_named(a) || is_named(b)) continue;
    // A pair of additional parameters comes twice.
    if (by_parameter.contains(correlation.b)) continue;
    DiagnosisFinding& finding = by_parameter[correlation.a];
    if (finding.objects.empty()) finding.objects.push_back(a);
    finding.objects.push_back(b);
    if (finding.values.empty()) finding.values = {{"r", correlation.r}};
  }
  for (auto& [unknown, finding] : by_parameter) {
    std::vector<std::string> others;
    for (std::size_t i = 1; i < finding.objects.size(); ++i) {
      others.push_back(in_words(finding.objects[i]));
    }
    finding.code = "inseparable_parameters";
    finding.severity = FindingSeverity::warning;
    finding.message = "The observations hardly tell " + in_words(finding.objects.front()) +
                      " from " + enumerated(others) + ".";
    finding.remedy =
        "Fix or observe the additional parameter, or add what separates them: differences of "
        "height, tilted images, images turned by 90 degrees, control.";
    diagnosis.findings.push_back(std::move(finding));
  }
}

}  // namespace vorn
