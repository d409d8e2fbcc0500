#include "quality/point_figures.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "base/place.h"
#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "lsq/linalg/kernels.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"

namespace vorn {

void SmallestTolerances::see(const Unknown& unknown, double value) {
  if (list_.size() == kListed && value > list_.back().value) return;
  const auto key = [](const ToleranceResult& row) {
    return std::tuple(row.value, row.unknown.number());
  };
  const ToleranceResult seen{unknown, value};
  const auto at = std::upper_bound(
      list_.begin(), list_.end(), seen,
      [&key](const ToleranceResult& a, const ToleranceResult& b) { return key(a) < key(b); });
  list_.insert(at, seen);
  if (list_.size() > kListed) list_.pop_back();
}

// By counting.
void PointFiguresInput::list_rays(const BundleProject& project, const QualityResults& results) {
  first_ray.assign(results.points.size() + 1, 0);
  for (std::size_t k = 0; k < results.points.size(); ++k) {
    first_ray[k + 1] = first_ray[k] + place(results.points[k].rays);
  }
  rays.resize(first_ray.back());
  std::vector<std::size_t> next(first_ray.begin(), first_ray.end() - 1);
  for (std::size_t row = 0; row < results.image_points.size(); ++row) {
    const ImagePoint& point = *results.image_points[row].point;
    const std::int32_t number = object_point_of(point, project.object_points)->index / 3;
    rays[next[place(number)]++] = static_cast<std::uint32_t>(row);
  }
}

double PointFiguresInput::datum_change(std::int32_t i, std::int32_t j) const {
  return datum == nullptr ? 0.0 : datum->change(i, j);
}

bool PointFigures::find(const SelectedInverse::PointCofactors& cofactors) {
  PointResult& point = results_.points[place(cofactors.point)];
  find_precision(point, cofactors);
  see_correlations(point, cofactors);
  return find_rays(point, cofactors);
}

void PointFigures::find_precision(PointResult& point,
                                  const SelectedInverse::PointCofactors& cofactors) {
  const std::int32_t first = 3 * cofactors.point;
  std::size_t element = 0;
  for (std::int32_t i = 0; i < 3; ++i) {
    const Unknown unknown{point.point, i};
    if (!unknown.is_fixed()) {
      const double diagonal = input_.system->weights().diagonal(first + i);
      tolerances_.see(unknown, 1.0 / (diagonal * cofactors.own[i][i]));
    }
    for (std::int32_t j = i; j < 3; ++j) {
      const double change = input_.datum_change(first + i, first + j);
      point.covariance[element++] = input_.scale * (cofactors.own[i][j] + change);
    }
  }
  point.ellipsoid = error_ellipsoid(point.covariance);
}

void PointFigures::see_correlations(const PointResult& row,
                                    const SelectedInverse::PointCofactors& cofactors) {
  const std::int32_t first_own = row.point->index;
  const double limit = correlations_.limit();
  const auto own = [&](std::int32_t i, std::int32_t j) {
    return cofactors.own[i][j] + input_.datum_change(first_own + i, first_own + j);
  };
  const double inverse[3] = {inverse_root(own(0, 0)), inverse_root(own(1, 1)),
                             inverse_root(own(2, 2))};
  for (std::int32_t i = 0; i < 3; ++i) {
    for (std::int32_t j = i + 1; j < 3; ++j) {
      const double r = own(i, j) * inverse[i] * inverse[j];
      if (std::fabs(r) >= limit) correlations_.add({row.point, i}, {row.point, j}, r);
    }
  }
  // Few pairs reach the limit: whether any of a block does is asked first, a bit below it.
  constexpr double kBitBelow = 1.0 - 1e-9;
  const NormalMatrix& normal = input_.system->normal();
  for (const NormalMatrix::PointBlock& at : normal.blocks_of(cofactors.point)) {
    const std::int32_t first = normal.block_index(at.block);
    const std::int32_t width = normal.block_width(at.block);
    const double* const inverse_sds = &input_.inverse_sds[place(first - input_.first_reduced)];
    for (std::int32_t r = 0; r < 3; ++r) {
      const double* const q = cofactors.coupled + r * cofactors.width + at.start / 3;
      if (input_.datum == nullptr &&
          !kernels().any_product_reaches(q, inverse_sds, width, kBitBelow * limit / inverse[r])) {
        continue;
      }
      for (std::int32_t c = 0; c < width; ++c) {
        const double changed = q[c] + input_.datum_change(first_own + r, first + c);
        const double correlation = changed * inverse[r] * inverse_sds[c];
        if (!(std::fabs(correlation) >= limit)) continue;
        const std::size_t parameter = place(first + c - input_.first_reduced);
        correlations_.add({row.point, r}, results_.parameters[parameter].unknown, correlation);
      }
    }
  }
}

bool PointFigures::find_rays(PointResult& point, const SelectedInverse::PointCofactors& cofactors) {
  const std::size_t first = input_.first_ray[place(cofactors.point)];
  const std::size_t end = input_.first_ray[place(cofactors.point) + 1];
  // The rows of a point lie far apart.
  for (std::size_t k = first; k < end; ++k) {
    const ImagePointResult& row = results_.image_points[input_.rays[k]];
    __builtin_prefetch(&row.point);
    __builtin_prefetch(&row.effect, 1);
  }
  for (std::size_t k = first; k < end; ++k) {
    const ImagePoint* const measured = results_.image_points[input_.rays[k]].point;
    __builtin_prefetch(&measured->x);
    __builtin_prefetch(&measured->weight_factor);
  }
  directions_.clear();
  bool has_directions = true;
  for (std::size_t k = first; k < end; ++k) {
    ImagePointResult& row = results_.image_points[input_.rays[k]];
    if (!rays_.fill(*point.point, cofactors, results_.settings.delta0, row)) return false;
    point.redundancy += row.r[0] + row.r[1];
    const ImageGeometry* const geometry = input_.images[place(row.image)].image().geometry;
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(geometry);
    has_directions = has_directions && orientation != nullptr;
    if (!has_directions) continue;
    const Vec3 ray = point.point->xyz - orientation->projection_centre();
    directions_.push_back((1.0 / std::sqrt(dot(ray, ray))) * ray);
  }
  if (has_directions) point.angle = largest_angle();
  return true;
}

// The largest angle at which two rays of a point meet, folded into 0 to pi/2.
double PointFigures::largest_angle() const {
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

}  // namespace vorn
