#include "quality/adjusted_values.h"

#include <algorithm>
#include <cmath>

#include "base/place.h"
#include "driver/bundle_project.h"
#include "geometry/eo_quaternion.h"
#include "lsq/ls_params.h"
#include "lsq/stages/image_projection.h"
#include "quality/distributions.h"
#include "quality/summary.h"
#include "sensors/image_ranges.h"
#include "text/ordered_ranges.h"

namespace vorn {
namespace {

void list_points(const BundleProject& project, QualityResults& results) {
  const AdjObjectList& unknowns = project.unknowns;
  results.points.reserve(place(project.object_points.count()));
  for (std::int32_t i = 0; i < unknowns.num_objects(); ++i) {
    const AdjObject& object = unknowns[i];
    const auto* const point = dynamic_cast<const ObjectPoint*>(&object);
    if (point != nullptr) results.points.push_back({point});
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      const Unknown unknown{&object, k};
      if (point == nullptr) results.parameters.push_back({unknown});
      if (!unknown.is_observed()) continue;
      results.observed_parameters.push_back(
          {unknown, *unknown.record().value - unknown.record().initial});
    }
  }
}

// The image points of images, one after the other.
class ImagePointLister {
 public:
  ImagePointLister(const BundleProject& project, double sigma0)
      : project_(project), sigma0_(sigma0) {}

  // Lists those that have unknowns from `row` on, with their residuals, computed - measured.
  void list(std::int32_t number, ImageResult& listed, ImagePointResult* row) {
    const BundleImage& image = *listed.image;
    find_coords(image);
    std::array<double, 2> squares{};
    std::size_t k = 0;
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_points_[k];
      const Pair& computed = computed_[k++];
      if (object_point == nullptr) continue;
      const Pair measured = image.camera->pixel_to_image({point.x, point.y});
      *row = {&point, number, object_point->index / 3};
      row->s = image.camera->sdev_to_image({point.sx, point.sy});
      for (std::size_t i = 0; i < 2; ++i) {
        row->v[i] = computed[i] - measured[i];
        squares[i] += row->v[i] * row->v[i];
        const double weighted = row->v[i] * sigma0_ / row->s[i];
        listed.vtpv += weighted * weighted;
      }
      ++row;
      ++listed.points;
    }
    if (listed.points == 0) return;
    for (std::size_t i = 0; i < 2; ++i) listed.rms[i] = std::sqrt(squares[i] / listed.points);
  }

 private:
  void find_coords(const BundleImage& image) {
    object_points_.clear();
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, project_.object_points);
      const bool has_unknowns = object_point != nullptr && object_point->index >= 0;
      object_points_.push_back(has_unknowns ? object_point : nullptr);
    }
    ImageProjection(image).find_coords(object_points_, computed_);
  }

  const BundleProject& project_;
  double sigma0_;
  // Of the running image.
  std::vector<const ObjectPoint*> object_points_;
  std::vector<Pair> computed_;
};

// Each image has room for all of its image points first; those without unknowns leave gaps, which
// are closed.
void list_image_points(const BundleProject& project, QualityResults& results) {
  std::size_t room = 0;
  for (const BundleImage& image : project.images) {
    ImageResult& listed = results.images.emplace_back();
    listed.image = &image;
    listed.first = room;
    room += place(image.count_points());
  }
  results.image_points.resize(room);
  visit_ranges(results.images.size(), images_per_range(project.images),
               [&](std::size_t begin, std::size_t end) {
                 ImagePointLister lister(project, results.settings.sigma0_prior);
                 for (std::size_t k = begin; k < end; ++k) {
                   ImageResult& image = results.images[k];
                   lister.list(static_cast<std::int32_t>(k), image,
                               &results.image_points[image.first]);
                 }
               });
  std::size_t end = 0;
  for (ImageResult& image : results.images) {
    const auto from = results.image_points.begin() + static_cast<std::ptrdiff_t>(image.first);
    if (image.first > end) {
      std::copy_n(from, image.points,
                  results.image_points.begin() + static_cast<std::ptrdiff_t>(end));
    }
    image.first = end;
    end += place(image.points);
  }
  results.image_points.resize(end);
  for (const ImagePointResult& row : results.image_points) {
    ++results.points[place(row.object_point)].rays;
  }
}

void list_constraints(const BundleProject& project, QualityResults& results) {
  project.unknowns.for_each<EOQuaternion>([&](const EOQuaternion& orientation) {
    double norm = 0.0;
    for (std::int32_t k = 3; k < 7; ++k) norm += orientation.value(k) * orientation.value(k);
    results.constraints.push_back({&orientation, "unit_quaternion", norm - 1.0});
  });
}

void list_check_points(QualityResults& results) {
  for (const PointResult& row : results.points) {
    const ObjectPoint& point = *row.point;
    if (point.type != PointType::check) continue;
    CheckPointResult& check = results.check_points.emplace_back();
    check.point = &point;
    for (std::size_t k = 0; k < 3; ++k) {
      const double given = point.param(static_cast<std::int32_t>(k)).initial;
      check.difference[k] = point.check[k] ? given - point.xyz[k] : kUndefined;
    }
  }
}

// Counts and sums of squares. sigma0_posterior = sqrt(v'Pv / redundancy) (Koch 1999).
void sum_up(const BundleProject& project, QualityResults& results) {
  QualityStatistics& sums = results.statistics;
  const AdjObjectList& unknowns = project.unknowns;
  sums.images = static_cast<std::int32_t>(results.images.size());
  sums.points = static_cast<std::int32_t>(results.points.size());
  sums.image_points = static_cast<std::int32_t>(results.image_points.size());
  sums.unknowns = unknowns.num_unknowns();
  sums.observed_parameters = unknowns.count_state(ParamState::observed);
  sums.fixed_parameters = unknowns.count_state(ParamState::eliminated);
  sums.constraints = unknowns.num_constraints();
  sums.redundancy = 2 * sums.image_points + sums.observed_parameters + sums.fixed_parameters +
                    sums.constraints - sums.unknowns;
  const double sigma0 = results.settings.sigma0_prior;
  std::array<double, 2> squares{};
  for (const ImageResult& image : results.images) {
    sums.vtpv.image += image.vtpv;
    if (image.points == 0) continue;
    for (std::size_t i = 0; i < 2; ++i) squares[i] += image.points * image.rms[i] * image.rms[i];
  }
  for (const ObservedResult& row : results.observed_parameters) {
    const double weighted = row.v * sigma0 / row.s();
    sums.vtpv.observed += weighted * weighted;
  }
  for (const ConstraintResult& row : results.constraints) {
    sums.vtpv.constraints += ls_params().weight_constraints * row.misclosure * row.misclosure;
  }
  sums.rms_vx = std::sqrt(squares[0] / sums.image_points);
  sums.rms_vy = std::sqrt(squares[1] / sums.image_points);
  if (sums.redundancy > 0) {
    sums.sigma0_posterior = std::sqrt(sums.vtpv.total() / sums.redundancy);
  }
  sums.global_test = global_test(sums.vtpv.total() / (sigma0 * sigma0), sums.redundancy,
                                 results.settings.confidence);
}

}  // namespace

QualitySettings settings_of_run(bool rigorous) {
  QualitySettings settings;
  settings.rigorous_iterations = rigorous;
  settings.sigma0_prior = ls_params().sigma0_apriori;
  settings.delta0 = noncentrality(settings.alpha, settings.power);
  settings.correlation_limit = ls_params().correlation_limit;
  settings.significance_limit = ls_params().significance_limit;
  return settings;
}

QualityResults adjusted_values(const BundleProject& project) {
  QualityResults results;
  results.settings = settings_of_run(project.settings.rigorous);
  results.status = project.converged ? RunStatus::converged : RunStatus::not_converged;
  results.iterations = project.iterations;
  list_points(project, results);
  list_image_points(project, results);
  list_constraints(project, results);
  list_check_points(results);
  sum_up(project, results);
  return results;
}

}  // namespace vorn
