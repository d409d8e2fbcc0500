// Findings about the datum of the parts of a network.

#include <algorithm>
#include <array>
#include <utility>

#include "geometry/ext_orientation.h"
#include "quality/diagnosis_findings.h"
#include "quality/diagnosis_rays.h"
#include "quality/diagnosis_words.h"
#include "text/number_format.h"

namespace vorn {

namespace {

// What a part of the network has to hold its datum with.
struct Holders {
  std::vector<DiagnosedItem> points;
  std::vector<DiagnosedItem> orientations;
  std::vector<Vec3> places;  // of points and projection centres
  bool in_plan = false;
  bool turned = false;  // an orientation holds more than its place

  // Points first.
  std::vector<DiagnosedItem> all() const {
    std::vector<DiagnosedItem> items = points;
    items.insert(items.end(), orientations.begin(), orientations.end());
    return items;
  }
};
Holders holders_of(const NetworkPart& part) {
  Holders holders;
  for (const ObjectPoint* point : part.held_points) {
    const bool plan = is_held(*point, 0) || is_held(*point, 1);
    holders.points.push_back(item_of(*point));
    holders.places.push_back(point->xyz);
    holders.in_plan = holders.in_plan || plan;
  }
  for (const ImageGeometry* geometry : part.geometries) {
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(geometry);
    bool holds = false;
    for (std::int32_t k = 0; k < geometry->num_values(); ++k) {
      if (!is_held(*geometry, k)) continue;
      holds = true;
      holders.turned = holders.turned || orientation == nullptr || k > 2;
    }
    if (!holds) continue;
    holders.orientations.push_back(item_of(*geometry));
    if (orientation != nullptr) holders.places.push_back(orientation->projection_centre());
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
// Below this quotient the noise of the control decides how the network turns about its line.
constexpr double kHardlyHeld = 1e-8;

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
  const Holders holders = holders_of(part);
  const std::string_view code = code_of(holders);
  const DatumWords& words = *std::find_if(kDatumWords.begin(), kDatumWords.end(),
                                          [&](const DatumWords& w) { return w.code == code; });
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  finding.code = code;
  finding.component = component.component;
  finding.defect = component.defect;
  finding.objects = holders.all();
  std::string held_by;
  if (!holders.points.empty()) {
    held_by = " (" + counted("object_point", ids_of(holders.points)) + ")";
  }
  finding.message = std::string(words.message) + held_by + " of " + part_in_words(part, alone) +
                    ": free " + (component.defect == 1 ? "is " : "are ") +
                    motions_in_words(component) + ".";
  finding.remedy = std::string(words.remedy) + ".";
  finding.values = {{"smallest_quotient", component.quotients[0]}};
}

// Control and projection centres that are not quite on a line hold the datum badly, or but for
// their noise not at all: such as the antenna's places along a single strip.
void find_near_line(const NetworkPart& part, const NetworkComponent& component, bool alone,
                    Diagnosis& diagnosis) {
  const Holders holders = holders_of(part);
  if (holders.turned || holders.places.size() < 3) return;
  const double across = spread_of(holders.places).across();
  if (!(across < kNearLine)) return;
  const bool useless = component.quotients[0] < kHardlyHeld;
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  const bool of_points = holders.orientations.empty();
  finding.code = of_points ? "collinear_control" : "insufficient_control";
  finding.severity = useless ? FindingSeverity::error : FindingSeverity::warning;
  finding.component = component.component;
  finding.defect = 0;
  std::vector<std::string> names;
  if (!holders.points.empty()) names.push_back(counted("object_point", ids_of(holders.points)));
  if (!of_points) names.push_back(counted("orientation", ids_of(holders.orientations)));
  finding.message = "The control (" + enumerated(names) + ") of " + part_in_words(part, alone) +
                    " is nearly on one line: " +
                    (useless ? "nothing but its noise stops the rotation about it."
                             : "the rotation about it is weak.");
  finding.objects = holders.all();
  finding.remedy = "Add a control point off the line.";
  finding.values = {{"across_by_along", across}, {"smallest_quotient", component.quotients[0]}};
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
      find_near_line(parts[p], component, alone, diagnosis);
    }
  }
  if (parts.size() < 2) return;
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  finding.code = "separate_blocks";
  finding.severity = defective ? FindingSeverity::error : FindingSeverity::warning;
  for (const NetworkPart& part : parts) {
    for (const BundleImage* image : part.images) {
      finding.objects.push_back({"image", image->id, {}});
    }
  }
  finding.message = "The images fall apart into " + std::to_string(parts.size()) +
                    " parts that no measured point ties together.";
  finding.remedy =
      "Measure points that images of both parts see, or give each part its own control.";
  finding.values = {{"count", static_cast<double>(parts.size())}};
}

}  // namespace vorn
