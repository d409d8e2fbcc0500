// Precision and reliability of every observation and unknown.

#include "quality/figures.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/place.h"
#include "base/workers.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "quality/point_figures.h"
#include "quality/summary.h"

namespace vorn {
namespace {

// The element of a point's unknown on the diagonal of Q, in the given datum.
struct GivenCofactor {
  std::int32_t unknown;
  double value;
};

class FigureMaker {
 public:
  FigureMaker(FinalSystem& system, const InnerDatum* datum, QualityResults& results)
      : system_(system),
        datum_(datum),
        results_(results),
        first_reduced_(system.normal().num_point_unknowns()),
        correlations_(results.settings.correlation_limit) {}

  bool run() {
    choose_sigma0();
    find_parameters();
    if (!find_points()) return false;
    find_reduced_correlations();
    results_.correlations_over_limit = correlations_.counts();
    results_.correlations = correlations_.take_largest();
    results_.smallest_tolerances = tolerances_.list();
    find_observed();
    find_images();
    find_check_points();
    find_distance();
    find_groups(results_);
    find_suspects(results_);
    results_.has_figures = true;
    return true;
  }

 private:
  void choose_sigma0();
  void find_parameters();
  bool find_points();
  void find_reduced_correlations();
  void find_observed();
  void find_images();
  void find_check_points();
  void find_distance();
  void list_observed_coordinates();
  void keep_given(const SelectedInverse::PointCofactors& cofactors);
  std::vector<GivenCofactor>::iterator given_from(std::int32_t unknown);
  double cofactor_of(const Unknown& unknown);
  double datum_change(std::int32_t i, std::int32_t j) const {
    return datum_ == nullptr ? 0.0 : datum_->change(i, j);
  }
  double inverse_sd(std::int32_t reduced) const {
    return input_.inverse_sds[place(reduced - first_reduced_)];
  }

  FinalSystem& system_;
  const InnerDatum* datum_;  // null for the given one
  QualityResults& results_;
  std::int32_t first_reduced_;
  CorrelationList correlations_;
  SmallestTolerances tolerances_;
  double sigma0_ = 0.0;               // the factor of all standard deviations
  std::vector<GivenCofactor> given_;  // of observed coordinates of points, ascending
  PointFiguresInput input_;
};

void FigureMaker::choose_sigma0() {
  QualityStatistics& statistics = results_.statistics;
  if (!is_defined(statistics.sigma0_posterior)) results_.settings.prior = true;
  sigma0_ = results_.settings.prior ? results_.settings.sigma0_prior : statistics.sigma0_posterior;
  statistics.sigma0_used = sigma0_;
}

void FigureMaker::find_parameters() {
  for (ParameterResult& row : results_.parameters) {
    const std::int32_t i = row.unknown.number();
    const double cofactor = system_.cofactor(i, i);
    if (!row.unknown.is_fixed()) {
      tolerances_.see(row.unknown, 1.0 / (system_.weights().diagonal(i) * cofactor));
    }
    const double in_datum = cofactor + datum_change(i, i);
    row.sd = sigma0_ * std::sqrt(std::max(0.0, in_datum));
    input_.inverse_sds.push_back(inverse_root(in_datum));
  }
}

void FigureMaker::list_observed_coordinates() {
  for (const ObservedResult& row : results_.observed_parameters) {
    const std::int32_t unknown = row.unknown.number();
    if (unknown < first_reduced_) given_.push_back({unknown, 0.0});
  }
  std::sort(given_.begin(), given_.end(),
            [](const GivenCofactor& a, const GivenCofactor& b) { return a.unknown < b.unknown; });
}

// The first one that is not before an unknown.
std::vector<GivenCofactor>::iterator FigureMaker::given_from(std::int32_t unknown) {
  return std::lower_bound(
      given_.begin(), given_.end(), unknown,
      [](const GivenCofactor& given, std::int32_t number) { return given.unknown < number; });
}

void FigureMaker::keep_given(const SelectedInverse::PointCofactors& cofactors) {
  const std::int32_t first = 3 * cofactors.point;
  for (auto at = given_from(first); at != given_.end() && at->unknown < first + 3; ++at) {
    at->value = cofactors.own[at->unknown - first][at->unknown - first];
  }
}

bool FigureMaker::find_points() {
  list_observed_coordinates();
  input_.system = &system_;
  input_.datum = datum_;
  input_.scale = sigma0_ * sigma0_;
  input_.first_reduced = first_reduced_;
  for (const ImageResult& row : results_.images) input_.images.emplace_back(*row.image, system_);
  input_.list_rays(results_);
  const bool alone = !input_.can_be_shared();
  std::vector<PointFigures> figures;
  while (figures.size() < workers().count()) figures.emplace_back(input_, results_);
  system_.for_each_batch(alone, [&](std::size_t batch, const auto& points, std::size_t worker) {
    for (const SelectedInverse::PointCofactors& cofactors : points) keep_given(cofactors);
    figures[worker].find(batch, points);
  });
  bool all_formed = true;
  for (const PointFigures& of : figures) {
    correlations_.take(of.correlations());
    for (const ToleranceResult& tolerance : of.tolerances().list()) tolerances_.see(tolerance);
    all_formed = all_formed && of.all_formed();
  }
  return all_formed;
}

// Pairs within an object, and of additional parameters and corrections with everything; different
// orientations are not looked at.
void FigureMaker::find_reduced_correlations() {
  const auto see = [this](const Unknown& a, const Unknown& b, double cofactor) {
    const double r = cofactor * inverse_sd(a.number()) * inverse_sd(b.number());
    if (std::fabs(r) >= correlations_.limit()) correlations_.add(a, b, r);
    return r;
  };
  std::vector<Unknown>& listed = results_.ap_correlation.parameters;
  for (const ParameterResult& row : results_.parameters) {
    const bool is_ap = object_type_of(*row.unknown.object) == ObjectType::ap_set;
    if (is_ap && !row.unknown.is_fixed()) listed.push_back(row.unknown);
  }
  const std::size_t n = listed.size();
  results_.ap_correlation.r.assign(n * n, kUndefined);
  // Where every image has parameters of its own, columns outside the pattern would take too long:
  // what never meets is left out then.
  constexpr std::size_t kMaxSolutions = 500;
  const bool may_solve = n <= kMaxSolutions;
  Vector column;
  std::size_t ap = 0;
  for (std::size_t i = 0; i < results_.parameters.size(); ++i) {
    const Unknown b = results_.parameters[i].unknown;
    if (b.is_fixed()) continue;
    if (object_type_of(*b.object) == ObjectType::orientation) {
      for (std::int32_t k = 0; k < b.k; ++k) {
        const Unknown a{b.object, k};
        see(a, b, system_.cofactor(a.number(), b.number()) + datum_change(a.number(), b.number()));
      }
      continue;
    }
    system_.find_reduced_column(b.number(), may_solve, column);
    for (std::size_t j = 0; j < i; ++j) {
      const Unknown a = results_.parameters[j].unknown;
      see(a, b, column[a.number()] + datum_change(a.number(), b.number()));
    }
    if (ap == n || !(listed[ap] == b)) continue;
    for (std::size_t j = 0; j < n; ++j) {
      const double r = j == ap ? 1.0
                               : column[listed[j].number()] * inverse_sd(b.number()) *
                                     inverse_sd(listed[j].number());
      results_.ap_correlation.r[ap * n + j] = r;
    }
    ++ap;
  }
}

// Of the given datum.
double FigureMaker::cofactor_of(const Unknown& unknown) {
  const std::int32_t i = unknown.number();
  return i >= first_reduced_ ? system_.cofactor(i, i) : given_from(i)->value;
}

// r = 1 - (sigma0/s)^2 Q_ii.
void FigureMaker::find_observed() {
  SumsByKind& sums = results_.statistics.redundancy_sum;
  for (ObservedResult& row : results_.observed_parameters) {
    const double root = system_.sigma0_prior() / row.s();
    row.r = std::clamp(1.0 - root * root * cofactor_of(row.unknown), 0.0, 1.0);
    sums.observed += row.r;
  }
}

void FigureMaker::find_images() {
  SumsByKind& sums = results_.statistics.redundancy_sum;
  for (ImageResult& image : results_.images) {
    for (std::size_t k = image.first; k < image.first + place(image.points); ++k) {
      const ImagePointResult& row = results_.image_points[k];
      for (std::size_t i = 0; i < 2; ++i) {
        image.redundancy += row.r[i];
        const double w = std::fabs(standardised(row.v[i], row.s[i], row.r[i]));
        if (is_defined(w) && !(image.max_w >= w)) image.max_w = w;
      }
    }
    sums.image += image.redundancy;
  }
}

void FigureMaker::find_check_points() {
  for (CheckPointResult& row : results_.check_points) {
    const PointResult& point = results_.points[place(row.point->index / 3)];
    for (std::size_t axis = 0; axis < 3; ++axis) row.sd[axis] = point.sd(axis);
  }
}

void FigureMaker::find_distance() {
  if (results_.settings.rigorous_iterations) return;
  const Vector& step = system_.step();
  QualityStatistics& statistics = results_.statistics;
  const auto see = [&](const Unknown& unknown, double sd) {
    const double distance = std::fabs(step[unknown.number()]) / sd;
    if (unknown.is_fixed() || !is_defined(distance)) return;
    if (statistics.distance_to_minimum >= distance) return;
    statistics.distance_to_minimum = distance;
    statistics.farthest = unknown;
  };
  for (const PointResult& row : results_.points) {
    for (std::int32_t k = 0; k < 3; ++k) see({row.point, k}, row.sd(place(k)));
  }
  for (const ParameterResult& row : results_.parameters) see(row.unknown, row.sd);
}

}  // namespace

bool add_figures(FinalSystem& system, const InnerDatum* datum, QualityResults& results) {
  return FigureMaker(system, datum, results).run();
}

}  // namespace vorn
