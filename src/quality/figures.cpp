// Precision and reliability of every observation and unknown. The points are gone through one by
// one: the cofactors of a point with the blocks that it meets serve all its rays.

#include "quality/figures.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "lsq/normal/selected_inverse.h"
#include "quality/correlation_list.h"
#include "quality/final_system.h"
#include "quality/image_figures.h"
#include "quality/inner_datum.h"
#include "quality/summary.h"

namespace vorn {
namespace {

std::size_t place(std::int32_t i) { return static_cast<std::size_t>(i); }

double inverse_root(double variance) { return variance > 0.0 ? 1.0 / std::sqrt(variance) : 0.0; }

// The largest angle at which two rays of a point meet, folded into 0 to pi/2.
class IntersectionAngle {
 public:
  void start() { directions_.clear(); }
  // False for a geometry without a direction of rays.
  bool add(const BundleImage& image, const Vec3& point) {
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
    if (orientation == nullptr) return false;
    const Vec3 ray = point - orientation->projection_centre();
    directions_.push_back((1.0 / std::sqrt(dot(ray, ray))) * ray);
    return true;
  }
  double largest() const {
    double smallest_cosine = 2.0;
    std::size_t a = 0;
    std::size_t b = 0;
    for (std::size_t i = 0; i < directions_.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        const double cosine = std::fabs(dot(directions_[i], directions_[j]));
        if (cosine >= smallest_cosine) continue;
        smallest_cosine = cosine;
        a = i;
        b = j;
      }
    }
    if (a == b) return kUndefined;
    const Vec3 normal = cross(directions_[a], directions_[b]);
    return std::atan2(std::sqrt(dot(normal, normal)), smallest_cosine);
  }

 private:
  std::vector<Vec3> directions_;
};

class FigureMaker {
 public:
  FigureMaker(const BundleProject& project, FinalSystem& system, const InnerDatum* datum,
              QualityResults& results)
      : project_(project),
        system_(system),
        datum_(datum),
        results_(results),
        first_reduced_(system.normal().num_point_unknowns()),
        correlations_(results.settings.correlation_limit) {}

  bool run() {
    choose_sigma0();
    if (!results_.observed_parameters.empty()) {
      given_cofactors_.resize(place(first_reduced_));
    }
    find_parameters();
    list_rays();
    for (const ImageResult& row : results_.images) {
      images_.push_back(std::make_unique<ImageFigures>(*row.image, system_, datum_));
    }
    bool formed = true;
    system_.for_each_point([&](const SelectedInverse::PointCofactors& cofactors) {
      formed = formed && find_point(cofactors);
    });
    if (!formed) return false;
    find_reduced_correlations();
    results_.correlations_over_limit = correlations_.counts();
    results_.correlations = correlations_.take_largest();
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
  void list_rays();
  bool find_point(const SelectedInverse::PointCofactors& cofactors);
  void see_point_correlations(const PointResult& row,
                              const SelectedInverse::PointCofactors& cofactors);
  void find_reduced_correlations();
  void find_observed();
  void find_images();
  void find_check_points();
  void find_distance();
  double scale() const { return sigma0_ * sigma0_; }
  double cofactor_of(const Unknown& unknown) const;
  double datum_change(std::int32_t i, std::int32_t j) const {
    return datum_ == nullptr ? 0.0 : datum_->change(i, j);
  }
  void see_tolerance(const Unknown& unknown, double cofactor);
  Unknown reduced_unknown(std::int32_t i) const {
    return results_.parameters[place(i - first_reduced_)].unknown;
  }
  double inverse_sd(std::int32_t reduced) const {
    return inverse_sds_[place(reduced - first_reduced_)];
  }

  const BundleProject& project_;
  FinalSystem& system_;
  const InnerDatum* datum_;  // null for the given one
  QualityResults& results_;
  std::int32_t first_reduced_;
  CorrelationList correlations_;
  double sigma0_ = 0.0;                  // the factor of all standard deviations
  std::vector<double> inverse_sds_;      // 1 / sqrt(Q_ii) of the reduced part; 0 for fixed unknowns
  std::vector<double> given_cofactors_;  // diagonal of the points' part; empty when not needed
  std::vector<std::unique_ptr<ImageFigures>> images_;
  std::vector<std::size_t> first_ray_;  // of each point, and the end
  std::vector<std::uint32_t> rays_;     // rows of the image points
  IntersectionAngle angle_;
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
    see_tolerance(row.unknown, cofactor);
    const double in_datum = cofactor + datum_change(i, i);
    row.sd = sigma0_ * std::sqrt(std::max(0.0, in_datum));
    inverse_sds_.push_back(inverse_root(in_datum));
  }
}

// Keeps the smallest 1/(N_ii Q_ii).
void FigureMaker::see_tolerance(const Unknown& unknown, double cofactor) {
  if (unknown.is_fixed()) return;
  constexpr std::size_t kListed = 10;
  const double value = 1.0 / (system_.weights().diagonal(unknown.number()) * cofactor);
  std::vector<ToleranceResult>& list = results_.smallest_tolerances;
  if (list.size() == kListed && !(value < list.back().value)) return;
  const auto at =
      std::upper_bound(list.begin(), list.end(), value,
                       [](double v, const ToleranceResult& row) { return v < row.value; });
  list.insert(at, {unknown, value});
  if (list.size() > kListed) list.pop_back();
}

// The image points by their object points, by counting.
void FigureMaker::list_rays() {
  const auto point_of = [this](const ImagePointResult& row) {
    return place(object_point_of(*row.point, project_.object_points)->index / 3);
  };
  first_ray_.assign(results_.points.size() + 1, 0);
  for (std::size_t k = 0; k < results_.points.size(); ++k) {
    first_ray_[k + 1] = first_ray_[k] + place(results_.points[k].rays);
  }
  rays_.resize(first_ray_.back());
  std::vector<std::size_t> next(first_ray_.begin(), first_ray_.end() - 1);
  for (std::size_t row = 0; row < results_.image_points.size(); ++row) {
    rays_[next[point_of(results_.image_points[row])]++] = static_cast<std::uint32_t>(row);
  }
}

bool FigureMaker::find_point(const SelectedInverse::PointCofactors& cofactors) {
  const std::size_t number = place(cofactors.point);
  PointResult& point = results_.points[number];
  std::size_t element = 0;
  for (std::int32_t i = 0; i < 3; ++i) {
    const std::int32_t unknown = 3 * cofactors.point + i;
    see_tolerance({point.point, i}, cofactors.own[i][i]);
    if (!given_cofactors_.empty()) given_cofactors_[place(unknown)] = cofactors.own[i][i];
    for (std::int32_t j = i; j < 3; ++j) {
      const double change = datum_change(unknown, 3 * cofactors.point + j);
      point.covariance[element++] = scale() * (cofactors.own[i][j] + change);
    }
  }
  point.ellipsoid = error_ellipsoid(point.covariance);
  see_point_correlations(point, cofactors);
  angle_.start();
  bool has_directions = true;
  for (std::size_t k = first_ray_[number]; k < first_ray_[number + 1]; ++k) {
    ImagePointResult& row = results_.image_points[rays_[k]];
    if (!images_[place(row.image)]->fill(*point.point, cofactors, results_.settings.delta0, row)) {
      return false;
    }
    point.redundancy += row.r[0] + row.r[1];
    const BundleImage& image = *results_.images[place(row.image)].image;
    has_directions = has_directions && angle_.add(image, point.point->xyz);
  }
  if (has_directions) point.angle = angle_.largest();
  return true;
}

void FigureMaker::see_point_correlations(const PointResult& row,
                                         const SelectedInverse::PointCofactors& cofactors) {
  const std::int32_t first_own = row.point->index;
  const auto own = [&](std::int32_t i, std::int32_t j) {
    return cofactors.own[i][j] + datum_change(first_own + i, first_own + j);
  };
  const double inverse[3] = {inverse_root(own(0, 0)), inverse_root(own(1, 1)),
                             inverse_root(own(2, 2))};
  for (std::int32_t i = 0; i < 3; ++i) {
    for (std::int32_t j = i + 1; j < 3; ++j) {
      const double r = own(i, j) * inverse[i] * inverse[j];
      if (std::fabs(r) >= correlations_.limit())
        correlations_.add({row.point, i}, {row.point, j}, r);
    }
  }
  const NormalMatrix& normal = system_.normal();
  for (const NormalMatrix::PointBlock& at : normal.blocks_of(row.point->index / 3)) {
    const std::int32_t first = normal.block_index(at.block);
    for (std::int32_t c = 0; c < normal.block_width(at.block); ++c) {
      for (std::int32_t r = 0; r < 3; ++r) {
        const double q = cofactors.coupled[r * cofactors.width + at.start / 3 + c] +
                         datum_change(first_own + r, first + c);
        const double correlation = q * inverse[r] * inverse_sd(first + c);
        if (!(std::fabs(correlation) >= correlations_.limit())) continue;
        correlations_.add({row.point, r}, reduced_unknown(first + c), correlation);
      }
    }
  }
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
double FigureMaker::cofactor_of(const Unknown& unknown) const {
  const std::int32_t i = unknown.number();
  return i >= first_reduced_ ? system_.cofactor(i, i) : given_cofactors_[place(i)];
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
  const Vector step = system_.step();
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

bool add_figures(const BundleProject& project, FinalSystem& system, const InnerDatum* datum,
                 QualityResults& results) {
  return FigureMaker(project, system, datum, results).run();
}

}  // namespace vorn
