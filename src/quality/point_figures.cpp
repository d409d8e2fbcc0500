#include "quality/point_figures.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

#include "base/place.h"
#include "lsq/linalg/kernels.h"
#include "quality/diagnosis_rays.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"

namespace vorn {

void SmallestTolerances::see(const ToleranceResult& seen) {
  if (list_.size() == kListed && seen.value > list_.back().value) return;
  const auto key = [](const ToleranceResult& row) {
    return std::tuple(row.value, row.unknown.number());
  };
  const auto at = std::upper_bound(
      list_.begin(), list_.end(), seen,
      [&key](const ToleranceResult& a, const ToleranceResult& b) { return key(a) < key(b); });
  list_.insert(at, seen);
  if (list_.size() > kListed) list_.pop_back();
}

// By counting.
void PointFiguresInput::list_rays(const QualityResults& results) {
  constexpr auto kBatch = static_cast<std::uint32_t>(kBatchPoints);
  const std::span<const std::int32_t> order = system->normal().point_order();
  std::vector<std::uint32_t> ranks(order.size());
  for (std::size_t rank = 0; rank < order.size(); ++rank) {
    ranks[place(order[rank])] = static_cast<std::uint32_t>(rank);
  }
  first_ray.assign((order.size() + kBatch - 1) / kBatch + 1, 0);
  for (const PointResult& point : results.points) {
    first_ray[ranks[place(point.point->index / 3)] / kBatch + 1] += place(point.rays);
  }
  std::partial_sum(first_ray.begin(), first_ray.end(), first_ray.begin());
  rays.resize(first_ray.back());
  std::vector<std::size_t> next(first_ray.begin(), first_ray.end() - 1);
  std::uint32_t row = 0;
  for (const ImagePointResult& point : results.image_points) {
    const std::uint32_t rank = ranks[place(point.object_point)];
    rays[next[rank / kBatch]++] = {row++, rank % kBatch};
  }
}

bool PointFiguresInput::can_be_shared() const {
  return std::all_of(images.begin(), images.end(),
                     [](const ImageFigures& image) { return image.equations().takes_packs(); });
}

double PointFiguresInput::datum_change(std::int32_t i, std::int32_t j) const {
  return datum == nullptr ? 0.0 : datum->change(i, j);
}

void PointFigures::find(std::size_t batch,
                        std::span<const SelectedInverse::PointCofactors> cofactors) {
  // Points and rows lie far apart: they are asked for.
  const std::span<const PointFiguresInput::Ray> rays = input_.rays_of(batch);
  points_.clear();
  for (const SelectedInverse::PointCofactors& of : cofactors) {
    PointResult& point = *points_.emplace_back(&results_.points[place(of.point)]);
    __builtin_prefetch(&point, 1);
    __builtin_prefetch(&point.redundancy, 1);
    input_.system->weights().prefetch(3 * of.point);
  }
  for (const PointResult* point : points_) __builtin_prefetch(&point->point->xyz);
  for (const PointFiguresInput::Ray& ray : rays) {
    const ImagePointResult& row = results_.image_points[ray.row];
    __builtin_prefetch(&row, 1);
    __builtin_prefetch(&row.effect, 1);
  }
  directions_.resize(cofactors.size());
  for (std::size_t k = 0; k < cofactors.size(); ++k) {
    find_precision(*points_[k], cofactors[k]);
    see_correlations(*points_[k], cofactors[k]);
    directions_[k].clear();
    has_directions_[k] = true;
  }
  all_formed_ = all_formed_ && find_rays(rays, cofactors);
  for (std::size_t k = 0; k < cofactors.size(); ++k) {
    if (has_directions_[k] && directions_[k].size() > 1) {
      points_[k]->angle = largest_angle(directions_[k]);
    }
  }
}

void PointFigures::find_precision(PointResult& point,
                                  const SelectedInverse::PointCofactors& cofactors) {
  const std::int32_t first = 3 * cofactors.point;
  std::size_t element = 0;
  for (std::int32_t i = 0; i < 3; ++i) {
    const Unknown unknown{point.point, i};
    if (!input_.system->is_fixed(first + i)) {
      const double diagonal = input_.system->weights().diagonal(first + i);
      tolerances_.see(unknown, 1.0 / (diagonal * cofactors.own[i][i]));
    }
    for (std::int32_t j = i; j < 3; ++j) {
      const double change = input_.datum_change(first + i, first + j);
      point.covariance[element++] = input_.scale * (cofactors.own[i][j] + change);
    }
  }
  point.semi_axes = semi_axes(point.covariance);
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
  for (const NormalMatrix::PointBlock& at : cofactors.blocks) {
    const std::int32_t first = normal.block_index(at.block);
    const std::int32_t width = normal.block_width(at.block);
    const double* const inverse_sds = &input_.inverse_sds[place(first - input_.first_reduced)];
    for (std::int32_t r = 0; r < 3; ++r) {
      const double* const q = cofactors.coupled + at.start + r * width;
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

// Image by image, some image points at a time.
bool PointFigures::find_rays(std::span<const PointFiguresInput::Ray> rays,
                             std::span<const SelectedInverse::PointCofactors> cofactors) {
  const auto row_of = [this](const PointFiguresInput::Ray& ray) -> ImagePointResult& {
    return results_.image_points[ray.row];
  };
  RayFigures::Ray some[RayFigures::kMostRays];
  for (std::size_t k = 0; k < rays.size();) {
    const std::int32_t image = row_of(rays[k]).image;
    const std::size_t first = k;
    std::size_t count = 0;
    for (; k < rays.size() && count < RayFigures::kMostRays && row_of(rays[k]).image == image;
         ++k) {
      some[count++] = {points_[rays[k].place]->point, &cofactors[rays[k].place], &row_of(rays[k])};
    }
    const ImageFigures& of = input_.images[place(image)];
    if (!rays_.fill(of, std::span(some).first(count))) return false;
    add_directions(of, rays.subspan(first, count));
    for (std::size_t i = first; i < k; ++i) {
      const ImagePointResult& row = row_of(rays[i]);
      points_[rays[i].place]->redundancy += row.r[0] + row.r[1];
    }
  }
  return true;
}

void PointFigures::add_directions(const ImageFigures& image,
                                  std::span<const PointFiguresInput::Ray> rays) {
  const std::optional<Vec3>& centre = image.projection_centre();
  for (const PointFiguresInput::Ray& ray : rays) {
    if (!centre) {
      has_directions_[ray.place] = false;
      continue;
    }
    const Vec3& point = points_[ray.place]->point->xyz;
    directions_[ray.place].push_back(unit(point - *centre));
  }
}

}  // namespace vorn
