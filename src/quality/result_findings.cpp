#include "quality/result_findings.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "quality/diagnosis_network.h"
#include "quality/distributions.h"

namespace vorn {
namespace {

constexpr double kLevel = 0.05;  // of all tests together
constexpr std::size_t kMaxPairs = 20;

std::string two_decimals(double value) {
  char text[64];
  return {text, write_number(text, value, fixed(2))};
}

void add_suspect(const SuspectResult& row, Diagnosis& diagnosis) {
  DiagnosisFinding finding;
  finding.severity = FindingSeverity::warning;
  const std::string test =
      " contradicts the other observations (log10 p = " + two_decimals(row.test.log10_p) + ").";
  if (row.image != nullptr) {
    finding.code = "suspect_image_point";
    finding.objects = {{"image", row.image->id, {}}, {"object_point", row.image_point->id, {}}};
    finding.message =
        "The measurement of point " + row.image_point->id + " in image " + row.image->id + test;
    finding.remedy =
        "Look at the measurement and at the identifier; leave it out (--exclude) if it is wrong.";
  } else {
    finding.code = "suspect_observed_parameter";
    finding.objects = {item_of(row.parameter)};
    finding.message = "The given value of " + parameter_name(row.parameter) + " of " +
                      row.parameter.object->id + test;
    finding.remedy = "Check the value and its standard deviation.";
  }
  finding.values = {{"t", row.test.t}, {"log10_p", row.test.log10_p}};
  diagnosis.findings.push_back(std::move(finding));
}

bool is_ap(const Unknown& unknown) { return object_type_of(*unknown.object) == ObjectType::ap_set; }

void add_correlation(const CorrelationResult& row, Diagnosis& diagnosis) {
  const bool inseparable = std::fabs(row.r) >= kInseparableCorrelation;
  DiagnosisFinding finding;
  finding.code = inseparable ? "inseparable_parameters" : "high_correlation";
  finding.severity = inseparable ? FindingSeverity::warning : FindingSeverity::info;
  finding.objects = {item_of(row.a), item_of(row.b)};
  finding.message =
      parameter_name(row.a) + " of " + row.a.object->id + " and " + parameter_name(row.b) + " of " +
      row.b.object->id +
      (inseparable ? " cannot be told apart: their correlation is " : " are correlated with ") +
      two_decimals(row.r) + ".";
  finding.remedy = inseparable
                       ? "Fix one of them, or add images that separate them: other heights, turned "
                         "by 90 degrees, oblique."
                       : "Look at their sum, not at each of them.";
  finding.values = {{"r", row.r}};
  diagnosis.findings.push_back(std::move(finding));
}

// Whether the network itself, in the first of the findings, was found not to tell a parameter from
// others.
bool is_named(const Diagnosis& diagnosis, std::size_t num_of_network, const Unknown& unknown) {
  const DiagnosedItem item = item_of(unknown);
  const auto begin = diagnosis.findings.begin();
  return std::any_of(begin, begin + static_cast<std::ptrdiff_t>(num_of_network),
                     [&item](const DiagnosisFinding& finding) {
                       return finding.code == "inseparable_parameters" &&
                              std::find(finding.objects.begin(), finding.objects.end(), item) !=
                                  finding.objects.end();
                     });
}

void add_correlations(const QualityResults& results, Diagnosis& diagnosis) {
  std::size_t listed = 0;
  const std::size_t num_of_network = diagnosis.findings.size();
  for (const CorrelationResult& row : results.correlations) {
    if (listed == kMaxPairs) return;
    const ObjectType type = object_type_of(*row.a.object);
    const bool other = is_ap(row.a) || type == ObjectType::orientation;
    const bool inseparable = std::fabs(row.r) >= kInseparableCorrelation;
    if (!is_ap(row.b) || !other || !(inseparable || is_ap(row.a))) continue;
    if (inseparable && is_named(diagnosis, num_of_network, row.b)) continue;
    add_correlation(row, diagnosis);
    ++listed;
  }
}

}  // namespace

std::vector<const SuspectResult*> clear_suspects(const QualityResults& results, double factor) {
  const QualityStatistics& statistics = results.statistics;
  const double tests = static_cast<double>(statistics.image_points) +
                       static_cast<double>(statistics.observed_parameters);
  std::vector<const SuspectResult*> clear;
  for (const SuspectResult& row : results.suspects) {
    const double limit = chi_square_quantile(1.0 - kLevel / tests, row.test.degrees_of_freedom);
    const bool alone = row.image == nullptr || (row.worst_of_image && row.worst_of_point);
    if (alone && row.test.t * factor > limit) clear.push_back(&row);
  }
  return clear;
}

void add_result_findings(QualityResults& results, Diagnosis& diagnosis) {
  for (PointResult& row : results.points) {
    row.component = diagnosis.component_of_point[static_cast<std::size_t>(row.point->index / 3)];
  }
  diagnosis.smallest_tolerances.clear();  // those of the network alone
  for (const ToleranceResult& row : results.smallest_tolerances) {
    diagnosis.smallest_tolerances.push_back({item_of(row.unknown), row.value});
  }
  for (const SuspectResult* row : clear_suspects(results, 1.0)) add_suspect(*row, diagnosis);
  add_correlations(results, diagnosis);
  diagnosis.sort_findings();
}

}  // namespace vorn
