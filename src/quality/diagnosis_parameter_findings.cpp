// Findings about parameters that the observations do not tell apart, or hardly.

#include <algorithm>
#include <map>
#include <utility>

#include "geometry/ext_orientation.h"
#include "quality/diagnosis_findings.h"
#include "quality/diagnosis_words.h"

namespace vorn {

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
  bool points = false;
  for (const MovedGroup& group : groups) {
    const std::string& type = group.items.front().second.object_type;
    points = points || type == "object_point";
    sets = sets || type == "ap_set";
    corrections = corrections || type.ends_with("_correction");
    geometry = geometry || type == "orientation" || type == "object_point";
  }
  if (corrections && points) {
    return "Give at least three points that are not on one line coordinates with standard "
           "deviations, or fix coefficients of the correction.";
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
  return "Fix or observe one of them.";
}

// Whether a direction moves nothing but points and geometries.
bool is_of_geometry(const UnknownNames& names, const WeakDirection& direction) {
  double others = 0.0;
  for (std::size_t u = 0; u < direction.elements.size(); ++u) {
    const ObjectType type = object_type_of(names.object_of(static_cast<std::int32_t>(u)));
    if (type != ObjectType::object_point && type != ObjectType::orientation) {
      others += direction.share(u);
    }
  }
  constexpr double kNoShare = 1e-6;
  return others < kNoShare;
}

// Orientations that directions move, by their shares in all of them, descending.
std::vector<const AdjObject*> moved_orientations(
    const UnknownNames& names, const std::vector<const WeakDirection*>& directions) {
  std::map<std::int32_t, double> shares;  // by the first unknown
  for (const WeakDirection* direction : directions) {
    for (std::size_t u = 0; u < direction->elements.size(); ++u) {
      const AdjObject& object = names.object_of(static_cast<std::int32_t>(u));
      if (object_type_of(object) == ObjectType::orientation) {
        shares[object.index] += direction->share(u);
      }
    }
  }
  std::vector<std::pair<double, std::int32_t>> sorted;
  for (const auto& [index, share] : shares) sorted.emplace_back(-share, index);
  std::sort(sorted.begin(), sorted.end());
  constexpr double kMatters = 0.05;
  std::vector<const AdjObject*> orientations;
  for (const auto& [share, index] : sorted) {
    if (share > kMatters * sorted.front().first) break;
    orientations.push_back(&names.object_of(index));
  }
  return orientations;
}

}  // namespace

// What points and geometries leave open besides similarity motions has one cause as a rule: images
// that too few points tie to the others, or linear ones that too little control does.
void find_loose_images(const UnknownNames& names, const std::vector<WeakDirection>& all,
                       double below, Diagnosis& diagnosis) {
  std::vector<const WeakDirection*> directions;
  for (const WeakDirection& direction : all) {
    if (direction.eigenvalue < below && is_of_geometry(names, direction)) {
      directions.push_back(&direction);
    }
  }
  const std::vector<const AdjObject*> orientations = moved_orientations(names, directions);
  if (orientations.empty()) return;
  DiagnosisFinding& finding = diagnosis.findings.emplace_back();
  finding.code = "inseparable_parameters";
  for (const AdjObject* orientation : orientations) {
    finding.objects.push_back(item_of(*orientation));
  }
  const std::string ways =
      directions.size() == 1 ? "one way" : std::to_string(directions.size()) + " ways";
  const std::string loose = counted("orientation", ids_of(finding.objects));
  const bool linear = dynamic_cast<const ExtOrientation*>(orientations.front()) == nullptr;
  if (orientations.size() == 1) {
    finding.message = "Its points do not determine " + loose + ".";
    finding.remedy = "Measure more points in its image, well spread and not on one line.";
  } else if (linear) {
    finding.message = "Object space and the linear " + loose + " can be deformed together in " +
                      ways + " that no image shows.";
    finding.remedy = "Give more points, not in one plane, coordinates with standard deviations.";
  } else {
    finding.message = "Some of " + loose + " can move against the others in " + ways +
                      ": too few common points tie their images.";
    finding.remedy =
        "Measure more points that these images share with the others, or observe the orientations.";
  }
  finding.values = {{"directions", static_cast<double>(directions.size())}};
}

void find_inseparable(const UnknownNames& names, const std::vector<WeakDirection>& directions,
                      double below, Diagnosis& diagnosis) {
  constexpr std::size_t kMostObjects = 24;
  for (const WeakDirection& direction : directions) {
    if (!(direction.eigenvalue < below) || is_of_geometry(names, direction)) continue;
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
    finding.message =
        words.size() > 1
            ? "The observations cannot tell " + words.front() + " from " +
                  enumerated({words.begin() + 1, words.end()}) + "."
            : "The observations cannot tell one from another among " + words.front() + ".";
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
