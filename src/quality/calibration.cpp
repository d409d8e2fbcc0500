#include "quality/calibration.h"

#include <algorithm>
#include <cmath>

#include "calibration/ap_set.h"
#include "sensors/camera.h"

namespace vorn {
namespace {

constexpr int kDiagonalSteps = 10;  // from the principal point to each corner

// Additional parameters with the covariances of those that are not fixed.
class Covariances {
 public:
  explicit Covariances(const QualityResults& results) : correlation_(results.ap_correlation) {
    if (correlation_.parameters.empty()) return;
    // The rows of the parameters stand in the order of the unknowns.
    const std::int32_t first = results.parameters.front().unknown.number();
    for (const Unknown& unknown : correlation_.parameters) {
      sds_.push_back(results.parameters[static_cast<std::size_t>(unknown.number() - first)].sd);
    }
  }

  // Place of an unknown, or the number of them when it is fixed.
  std::size_t place_of(const Unknown& unknown) const {
    const auto& parameters = correlation_.parameters;
    return static_cast<std::size_t>(std::find(parameters.begin(), parameters.end(), unknown) -
                                    parameters.begin());
  }
  std::size_t size() const { return sds_.size(); }

  // Standard deviation of the sum of unknowns times their factors.
  double sd_of_sum(const std::vector<std::pair<std::size_t, double>>& terms) const {
    double variance = 0.0;
    for (const auto& [i, factor_i] : terms) {
      if (i == size()) continue;
      for (const auto& [j, factor_j] : terms) {
        if (j == size()) continue;
        variance += factor_i * factor_j * sds_[i] * sds_[j] * correlation_.r[i * size() + j];
      }
    }
    return std::sqrt(std::max(0.0, variance));
  }

 private:
  const APCorrelation& correlation_;
  std::vector<double> sds_;
};

bool is_inner_orientation(std::string_view name) {
  return name == "dxp" || name == "dyp" || name == "dc";
}

// `given` plus the parameters of that name of all sets.
CalibratedValue sum_of(const Camera& camera, std::string_view parameter, std::string name,
                       double given, const Covariances& covariances) {
  CalibratedValue result{std::move(name), "m", given, 0.0};
  std::vector<std::pair<std::size_t, double>> terms;
  for (const APSet* set : camera.ap_sets) {
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      if (set->get_param_name(k) != parameter) continue;
      result.value += set->value(k);
      terms.emplace_back(covariances.place_of({set, k}), 1.0);
    }
  }
  result.sd = covariances.sd_of_sum(terms);
  return result;
}

DistortionRow distortion_at(const Camera& camera, double radius, const Covariances& covariances) {
  const double half = 0.5 * std::hypot(camera.sx, camera.sy);
  const double ux = 0.5 * camera.sx / half;
  const double uy = 0.5 * camera.sy / half;
  DistortionRow row;
  row.radius = radius;
  const double outwards = radius < 0.0 ? -1.0 : 1.0;
  std::vector<std::pair<std::size_t, double>> terms;
  DesignBlock derivs;
  for (const APSet* set : camera.ap_sets) {
    set->get_derivs({radius * ux, radius * uy, -camera.c}, derivs);
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      if (is_inner_orientation(set->get_param_name(k))) continue;
      row.dx += derivs.a[0][k] * set->value(k);
      row.dy += derivs.a[1][k] * set->value(k);
      terms.emplace_back(covariances.place_of({set, k}), derivs.a[0][k] * ux + derivs.a[1][k] * uy);
    }
  }
  row.radial = outwards * (row.dx * ux + row.dy * uy);
  row.sd = covariances.sd_of_sum(terms);
  return row;
}

// Pixel spacings, as a change of one metre in the image shows them.
std::array<double, 2> pixel_of(const Camera& camera) {
  if (camera.get_coord_system_name() == "image") return {0.0, 0.0};
  const Pair sdev = camera.sdev_to_image({1.0, 1.0});
  return {sdev[0], sdev[1]};
}

CalibratedCamera calibrated(const Camera& camera, const Covariances& covariances) {
  CalibratedCamera result;
  result.camera = &camera;
  result.pixel = pixel_of(camera);
  result.principal_distance = sum_of(camera, "dc", "c", camera.c, covariances);
  result.principal_point = {sum_of(camera, "dxp", "xp", camera.xp, covariances),
                            sum_of(camera, "dyp", "yp", camera.yp, covariances)};
  for (const APSet* set : camera.ap_sets) {
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      const Unknown unknown{set, k};
      if (is_inner_orientation(set->get_param_name(k))) continue;
      result.others.push_back({parameter_name(unknown), parameter_unit(unknown), set->value(k),
                               covariances.sd_of_sum({{covariances.place_of(unknown), 1.0}})});
    }
  }
  const double half = 0.5 * std::hypot(camera.sx, camera.sy);
  for (int step = -kDiagonalSteps; step <= kDiagonalSteps; ++step) {
    result.distortion.push_back(distortion_at(camera, half * step / kDiagonalSteps, covariances));
  }
  return result;
}

}  // namespace

std::vector<CalibratedCamera> calibrated_cameras(const QualityResults& results) {
  const Covariances covariances(results);
  std::vector<CalibratedCamera> cameras;
  for (const ImageResult& row : results.images) {
    const Camera* const camera = row.image->camera;
    const bool is_listed =
        std::any_of(cameras.begin(), cameras.end(),
                    [camera](const CalibratedCamera& c) { return c.camera == camera; });
    if (!is_listed && !camera->ap_sets.empty()) cameras.push_back(calibrated(*camera, covariances));
  }
  return cameras;
}

}  // namespace vorn
