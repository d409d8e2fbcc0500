#include "app/exchange/layers.h"

#include <cmath>
#include <limits>
#include <numbers>

#include "geometry/ext_orientation.h"
#include "geometry/rotations.h"
#include "lsq/ls_params.h"
#include "report/residuals.h"

namespace vorn::exchange {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr double kMicrometres = 1e6;
constexpr double kDegrees = 180.0 / std::numbers::pi;

Layer points_layer(const BundleProject& project) {
  Layer layer{"points",
              Shape::point,
              {{"id", FieldKind::text},
               {"role", FieldKind::text},
               {"x", FieldKind::real},
               {"y", FieldKind::real},
               {"z", FieldKind::real},
               {"rays", FieldKind::integer}},
              {}};
  for (const ObjectPoint& point : project.object_points) {
    layer.features.push_back({{point.xyz},
                              {point.id, std::string(point_type_name(point.type)), point.xyz[0],
                               point.xyz[1], point.xyz[2], std::int64_t{point.num_rays}}});
  }
  return layer;
}

// Root mean square of the residuals of an image's coordinates [um].
double rms_of(const ResidualStatistics& statistics) {
  if (statistics.count == 0) return kMissing;
  return std::sqrt((statistics.sum_vx2 + statistics.sum_vy2) / (2.0 * statistics.count)) *
         kMicrometres;
}

void add_images(const BundleProject& project, Layer& images, Layer& residuals_layer) {
  ImageResiduals residuals;
  for (const BundleImage& image : project.images) {
    compute_residuals(image, project.object_points, residuals);
    for (const PointResidual& residual : residuals.points) {
      if (residual.object_point == nullptr) continue;
      const ImagePoint& point = *residual.image_point;
      residuals_layer.features.push_back(
          {{},
           {image.id, point.id, point.x, point.y, residual.vx * kMicrometres,
            residual.vy * kMicrometres}});
    }
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
    if (orientation == nullptr) continue;  // has no projection centre
    const Vec3& centre = orientation->projection_centre();
    const Vec3 angles = opk_rot::params_from_matrix(orientation->rotation_matrix());
    images.features.push_back({{centre},
                               {image.id, image.camera_id, centre[0], centre[1], centre[2],
                                angles[0] * kDegrees, angles[1] * kDegrees, angles[2] * kDegrees,
                                std::int64_t{image.count_points()}, rms_of(residuals.statistics)}});
  }
}

// The differences of a point whose components are compared, as a line from the one position to the
// other.
Feature difference(const ObjectPoint& point, const Vec3& start, const Vec3& difference,
                   double exaggeration) {
  Vec3 end = start;
  double sum = 0.0;
  for (std::size_t k = 0; k < 3; ++k) {
    if (!std::isfinite(difference[k])) continue;
    end[k] += exaggeration * difference[k];
    sum += difference[k] * difference[k];
  }
  return {{start, end}, {point.id, difference[0], difference[1], difference[2], std::sqrt(sum)}};
}

// Residuals are adjusted minus given, differences of check points given minus adjusted.
void add_differences(const BundleProject& project, double exaggeration, Layer& control,
                     Layer& check) {
  for (const ObjectPoint& point : project.object_points) {
    Vec3 given{};
    Vec3 residual{kMissing, kMissing, kMissing};
    Vec3 checked{kMissing, kMissing, kMissing};
    bool observed = false;
    for (std::size_t k = 0; k < 3; ++k) {
      given[k] = point.param(static_cast<std::int32_t>(k)).initial;
      if (point.type == PointType::control && ls_params().is_observed(point.std_devs[k])) {
        residual[k] = point.xyz[k] - given[k];
        observed = true;
      }
      if (point.check[k]) checked[k] = given[k] - point.xyz[k];
    }
    if (observed) {
      control.features.push_back(difference(point, given, residual, exaggeration));
    }
    if (point.type == PointType::check) {
      check.features.push_back(difference(point, point.xyz, checked, exaggeration));
    }
  }
}

// The ellipse in the plane: half axes from the eigenvalues of the covariance matrix, azimuth of the
// large one from the Y axis clockwise.
Feature ellipse(const ObjectPoint& point, const PointCovariance& covariance, double exaggeration) {
  constexpr int kVertices = 36;
  const double mean = 0.5 * (covariance.xx + covariance.yy);
  const double half = 0.5 * (covariance.xx - covariance.yy);
  const double radius = std::hypot(half, covariance.xy);
  const double a = std::sqrt(mean + radius);
  const double b = std::sqrt(std::max(0.0, mean - radius));
  const double direction = 0.5 * std::atan2(covariance.xy, half);  // from the X axis
  Feature feature;
  for (int i = 0; i <= kVertices; ++i) {
    const double t = 2.0 * std::numbers::pi * (i % kVertices) / kVertices;
    const double u = exaggeration * a * std::cos(t);
    const double v = exaggeration * b * std::sin(t);
    feature.vertices.push_back({point.xyz[0] + u * std::cos(direction) - v * std::sin(direction),
                                point.xyz[1] + u * std::sin(direction) + v * std::cos(direction),
                                point.xyz[2]});
  }
  double azimuth = 90.0 - direction * kDegrees;
  if (azimuth >= 180.0) azimuth -= 180.0;
  feature.values = {point.id, a, b, azimuth, std::sqrt(covariance.zz)};
  return feature;
}

}  // namespace

std::vector<Layer> layers_of(const BundleProject& project, const PointCovariances& covariances,
                             double exaggeration) {
  Layer images{"images",
               Shape::point,
               {{"id", FieldKind::text},
                {"camera", FieldKind::text},
                {"x", FieldKind::real},
                {"y", FieldKind::real},
                {"z", FieldKind::real},
                {"omega_deg", FieldKind::real},
                {"phi_deg", FieldKind::real},
                {"kappa_deg", FieldKind::real},
                {"points", FieldKind::integer},
                {"rms_um", FieldKind::real}},
               {}};
  Layer image_residuals{"image_residuals",
                        Shape::none,
                        {{"image", FieldKind::text},
                         {"point", FieldKind::text},
                         {"x", FieldKind::real},
                         {"y", FieldKind::real},
                         {"vx_um", FieldKind::real},
                         {"vy_um", FieldKind::real}},
                        {}};
  const auto vectors = [](const char* name, const char* x, const char* y, const char* z) {
    return Layer{name,
                 Shape::line,
                 {{"id", FieldKind::text},
                  {x, FieldKind::real},
                  {y, FieldKind::real},
                  {z, FieldKind::real},
                  {"length", FieldKind::real}},
                 {}};
  };
  Layer control = vectors("control_residuals", "vx", "vy", "vz");
  Layer check = vectors("check_differences", "dx", "dy", "dz");
  Layer ellipses{"error_ellipses",
                 Shape::polygon,
                 {{"id", FieldKind::text},
                  {"a", FieldKind::real},
                  {"b", FieldKind::real},
                  {"azimuth_deg", FieldKind::real},
                  {"sz", FieldKind::real}},
                 {}};
  add_images(project, images, image_residuals);
  add_differences(project, exaggeration, control, check);
  for (const ObjectPoint& point : project.object_points) {
    const auto found = covariances.find(&point);
    if (found != covariances.end()) {
      ellipses.features.push_back(ellipse(point, found->second, exaggeration));
    }
  }
  std::vector<Layer> layers;
  layers.push_back(points_layer(project));
  for (Layer* layer : {&images, &control, &check, &ellipses, &image_residuals}) {
    layers.push_back(std::move(*layer));
  }
  return layers;
}

}  // namespace vorn::exchange
