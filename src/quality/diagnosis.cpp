#include "quality/diagnosis.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "driver/bundle_project.h"
#include "quality/diagnosis_datum.h"
#include "quality/diagnosis_findings.h"
#include "quality/diagnosis_network.h"
#include "quality/diagnosis_system.h"
#include "quality/diagnosis_weakness.h"
#include "quality/final_system.h"

namespace vorn {

std::string_view motion_kind_name(MotionKind kind) {
  constexpr std::array<std::string_view, 4> kNames = {"translation", "rotation", "scale",
                                                      "similarity"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string_view severity_name(FindingSeverity severity) {
  constexpr std::array<std::string_view, 3> kNames = {"error", "warning", "info"};
  return kNames[static_cast<std::size_t>(severity)];
}

namespace {

constexpr std::size_t kListed = 10;
constexpr std::int32_t kMostWithEigenvalues = 6000;

// Vectors in the basis of the search for weak directions: as many as pay, and fit the memory that
// the normal equations take anyway.
std::size_t basis_size(std::int32_t unknowns) {
  constexpr std::size_t kElements = 40'000'000;
  return std::clamp<std::size_t>(kElements / static_cast<std::size_t>(std::max(unknowns, 1)), 16,
                                 120);
}

void list_first(const UnknownNames& names,
                const std::vector<std::pair<double, std::int32_t>>& values,
                std::vector<DiagnosedValue>& list) {
  for (const auto& [value, unknown] : values) {
    if (list.size() == kListed) break;
    list.push_back({names.item(unknown), value});
  }
}

void list_eigenvalues(const UnknownNames& names, const std::vector<WeakDirection>& directions,
                      Diagnosis& diagnosis) {
  for (const WeakDirection& direction : directions) {
    if (diagnosis.smallest_eigenvalues.size() == kListed) break;
    DiagnosedEigenvalue& eigenvalue = diagnosis.smallest_eigenvalues.emplace_back();
    eigenvalue.value = direction.eigenvalue;
    std::vector<std::pair<double, std::int32_t>> shares;
    for (std::size_t u = 0; u < direction.elements.size(); ++u) {
      shares.emplace_back(-direction.share(u), static_cast<std::int32_t>(u));
    }
    const std::size_t count = std::min(kListed, shares.size());
    std::partial_sort(shares.begin(), shares.begin() + static_cast<std::ptrdiff_t>(count),
                      shares.end());
    for (std::size_t i = 0; i < count; ++i) {
      constexpr double kNoShare = 1e-6;
      if (-shares[i].first < kNoShare) break;
      eigenvalue.parts.emplace_back(names.item(shares[i].second), -shares[i].first);
    }
  }
}

// Unknowns of the parameter sets, unless their columns of the inverse are too much work.
std::vector<std::int32_t> set_unknowns(const UnknownNames& names, const NormalMatrix& normal,
                                       const UnknownWeights& weights) {
  constexpr std::size_t kMostElements = 20'000'000;
  std::vector<std::int32_t> unknowns;
  for (std::int32_t u = normal.num_point_unknowns(); u < normal.size(); ++u) {
    const bool in_set = object_type_of(names.object_of(u)) == ObjectType::ap_set;
    if (in_set && weights.is_active(u)) unknowns.push_back(u);
  }
  if (unknowns.size() * static_cast<std::size_t>(normal.size()) > kMostElements) return {};
  return unknowns;
}

void look_for_weakness(const UnknownNames& names, DiagnosedSystem& system,
                       const std::vector<DatumAnalysis::Changes>& free_motions, bool has_failed,
                       Diagnosis& diagnosis) {
  const Weakness weakness(system, free_motions);
  list_first(names, weakness.pivots(), diagnosis.smallest_pivots);
  diagnosis.has_eigenvalues = system.size() <= kMostWithEigenvalues;
  // Another inverse of a large sound network costs as much as that of its figures of quality.
  if (has_failed || diagnosis.has_eigenvalues || !weakness.is_regular()) {
    list_first(names, weakness.tolerances(), diagnosis.smallest_tolerances);
  }
  const std::vector<StrongCorrelation> strong = weakness.correlations(
      set_unknowns(names, system.normal(), system.weights()), kInseparableCorrelation);
  if (weakness.is_regular() && !diagnosis.has_eigenvalues && !has_failed) {
    find_correlated(names, strong, diagnosis);
    return;
  }
  const std::vector<WeakDirection> directions = weakness.directions(basis_size(system.size()));
  if (diagnosis.has_eigenvalues) list_eigenvalues(names, directions, diagnosis);
  // What a run failed for may be determined by a hair at the approximate values. Parameters that
  // are determined no better are worth naming beside a free datum, which hides their correlations.
  constexpr double kOpen = 1e-14;
  constexpr double kNearlyOpen = 1e-9;
  const bool is_singular = has_failed || !weakness.is_regular();
  const double parameters_below = is_singular ? kNearlyOpen : kOpen;
  find_inseparable(names, directions, parameters_below, diagnosis);
  find_loose_images(names, directions, kOpen, diagnosis);
  if (has_failed && !diagnosis.has_errors()) {
    find_loose_images(names, directions, kNearlyOpen, diagnosis);
  }
  find_correlated(names, strong, diagnosis);
}

void list_components(const Network& network, Diagnosis& diagnosis) {
  for (const std::int32_t part : network.part_of_points()) {
    diagnosis.component_of_point.push_back(part + 1);
  }
}

// The smallest pivot ratios of the active unknowns.
std::vector<std::pair<double, std::int32_t>> smallest_pivots(const FinalSystem& system) {
  std::vector<std::pair<double, std::int32_t>> ratios;  // a heap, the largest on top
  for (std::int32_t u = 0; u < system.normal().size(); ++u) {
    if (!system.weights().is_active(u)) continue;
    const std::pair ratio(system.pivot_ratio(u), u);
    if (ratios.size() == kListed && !(ratio < ratios.front())) continue;
    if (ratios.size() == kListed) {
      std::pop_heap(ratios.begin(), ratios.end());
      ratios.pop_back();
    }
    ratios.push_back(ratio);
    std::push_heap(ratios.begin(), ratios.end());
  }
  std::sort_heap(ratios.begin(), ratios.end());
  return ratios;
}

// Correlations of at least `limit` between the given unknowns and any others but object points, as
// `Weakness::correlations` lists them.
std::vector<StrongCorrelation> strong_correlations(const FinalSystem& system,
                                                   const std::vector<std::int32_t>& unknowns,
                                                   double limit) {
  std::vector<StrongCorrelation> found;
  Vector column;
  for (const std::int32_t a : unknowns) {
    system.find_reduced_column(a, true, column);
    std::vector<std::pair<double, StrongCorrelation>> of_a;
    for (std::int32_t b = system.normal().num_point_unknowns(); b < column.size(); ++b) {
      const double r = column[b] / std::sqrt(column[a] * system.cofactor(b, b));
      if (b == a || !(std::fabs(r) >= limit)) continue;
      of_a.push_back({-system.weights().diagonal(b) * column[b] * column[b], {a, b, r}});
    }
    std::stable_sort(of_a.begin(), of_a.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    if (of_a.size() > kMostCorrelated) of_a.resize(kMostCorrelated);
    for (const auto& [size, correlation] : of_a) found.push_back(correlation);
  }
  return found;
}

}  // namespace

Diagnosis diagnose(BundleProject& project) {
  Diagnosis diagnosis;
  const UnknownNames names(project);
  const Network network(project);
  const bool has_failed = project.failed_unknown >= 0;
  if (has_failed) diagnosis.failed_at = names.item(project.failed_unknown);
  list_components(network, diagnosis);

  DatumAnalysis datum(network);
  DiagnosedSystem system(project, [&datum](const LinearisedPoint& point) { datum.add(point); });
  diagnosis.components = datum.components(system.weights());
  find_datum_defects(network, diagnosis);
  find_unobserved(project, system.weights(), diagnosis);
  const std::vector<const ObjectPoint*> undetermined =
      find_weak_intersections(project, system.weights(), system.normal(), {}, diagnosis);
  for (const ObjectPoint* point : undetermined) {
    for (std::int32_t k = 0; k < 3; ++k) system.pin(point->index + k);
  }
  look_for_weakness(names, system, datum.free_changes(), has_failed, diagnosis);
  diagnosis.sort_findings();
  return diagnosis;
}

std::optional<Diagnosis> diagnose_sound(const BundleProject& project, const FinalSystem& system,
                                        const std::vector<double>& angles) {
  if (project.failed_unknown >= 0 || system.normal().size() <= kMostWithEigenvalues) return {};
  const std::vector<std::pair<double, std::int32_t>> pivots = smallest_pivots(system);
  if (pivots.empty() || !(pivots.front().first >= kSmallestPivotRatio)) return {};
  Diagnosis diagnosis;
  const UnknownNames names(project);
  const Network network(project);
  list_components(network, diagnosis);
  DatumAnalysis datum(network);
  diagnosis.components = datum.components(system.weights());
  if (!datum.free_changes().empty()) return {};
  find_datum_defects(network, diagnosis);
  find_unobserved(project, system.weights(), diagnosis);
  if (!find_weak_intersections(project, system.weights(), system.normal(), angles, diagnosis)
           .empty()) {
    return {};
  }
  list_first(names, pivots, diagnosis.smallest_pivots);
  const std::vector<std::int32_t> sets = set_unknowns(names, system.normal(), system.weights());
  find_correlated(names, strong_correlations(system, sets, kInseparableCorrelation), diagnosis);
  diagnosis.sort_findings();
  return diagnosis;
}

void Diagnosis::sort_findings() {
  std::stable_sort(
      findings.begin(), findings.end(),
      [](const DiagnosisFinding& a, const DiagnosisFinding& b) { return a.severity < b.severity; });
}

bool Diagnosis::has_errors() const {
  return std::any_of(findings.begin(), findings.end(), [](const DiagnosisFinding& finding) {
    return finding.severity == FindingSeverity::error;
  });
}

bool Diagnosis::condemns_results() const {
  const bool singular = !failed_at.object_type.empty();
  return std::any_of(findings.begin(), findings.end(), [singular](const DiagnosisFinding& finding) {
    return finding.severity == FindingSeverity::error &&
           (singular || finding.code != "weak_intersection");
  });
}

Diagnosis diagnose_initially(BundleProject& project) {
  std::vector<std::pair<double*, double>> values;
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      const ParamRecord& parameter = object.param(k);
      values.emplace_back(parameter.value, std::exchange(*parameter.value, parameter.initial));
    }
  }
  for (ImageGeometry& geometry : project.image_geometries) geometry.update();
  Diagnosis diagnosis = diagnose(project);
  for (const auto& [parameter, value] : values) *parameter = value;
  for (ImageGeometry& geometry : project.image_geometries) geometry.update();
  return diagnosis;
}

Diagnosis diagnose_completed(BundleProject& project) {
  return project.settings.damped ? diagnose(project) : diagnose_initially(project);
}

bool is_doubtful(const BundleProject& project) {
  if (project.failed_unknown >= 0) return true;
  // Rounding has left up to some thousand times kSmallestPivotRatio where nothing should be; to
  // look into a sound network costs time, to believe a singular one costs more.
  constexpr double kDoubt = 1e5 * kSmallestPivotRatio;
  for (std::int32_t u = 0; u < project.markers.size(); ++u) {
    const double marker = project.markers[u];
    if (marker * marker < kDoubt * project.normal.at(u, u)) return true;
  }
  return false;
}

}  // namespace vorn
