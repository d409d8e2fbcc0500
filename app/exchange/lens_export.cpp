// The lens of a project's camera in the terms of other formats. With s = (c + dc)/c, P the vector
// of decentering in the directions right and down:
//
//   fx = (c + dc)/p   k_i = K_i c^2i/s   p2 = P_right c/s   p1 = P_down c/s
//
// which is exact unless an affinity meets distortion or there are terms that the format does not
// have. Then all parameters of the format are fitted over the image by least squares.

#include "app/exchange/lens_export.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "app/exchange/source.h"
#include "calibration/ap_set.h"
#include "lsq/linalg/cholesky.h"
#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"

namespace vorn::exchange {
namespace {

// Differences below this are rounding [px].
constexpr double kExact = 1e-9;
constexpr int kGrid = 25;

// The parameters of all sets that a format has, too; K and P as the models name them.
struct LensSums {
  double dxp = 0.0;
  double dyp = 0.0;
  double dc = 0.0;
  double b1 = 0.0;
  std::array<double, 3> K{};
  std::array<double, 2> P{};
};

LensSums sums_of(const Camera& camera) {
  LensSums sums;
  const std::pair<std::string_view, double*> targets[] = {
      {"dxp", &sums.dxp}, {"dyp", &sums.dyp}, {"dc", &sums.dc},
      {"b1", &sums.b1},   {"K1", &sums.K[0]}, {"K2", &sums.K[1]},
      {"K3", &sums.K[2]}, {"P1", &sums.P[0]}, {"P2", &sums.P[1]}};
  for (const APSet* set : camera.ap_sets) {
    for (std::int32_t i = 0; i < set->num_ap(); ++i) {
      const std::string name = set->get_param_name(i);
      if (name == "sx") sums.b1 -= set->value(i);
      for (const auto& [target, sum] : targets) {
        if (name == target) *sum += set->value(i);
      }
    }
  }
  return sums;
}

double dot2(const std::array<double, 2>& a, const std::array<double, 2>& b) {
  return a[0] * b[0] + a[1] * b[1];
}

PixelFrame frame_of(const Camera& camera, LensForm form, double frame_pixel) {
  PixelFrame frame;
  frame.form = form;
  frame.right = {1.0, 0.0};
  frame.down = {0.0, -1.0};
  if (dynamic_cast<const PBCamera*>(&camera) != nullptr) {
    throw ExchangeError("camera " + camera.id + ": a line camera has no counterpart in the format");
  }
  if (const auto* ccd = dynamic_cast<const CameraCCD*>(&camera)) {
    frame.columns = ccd->nc;
    frame.rows = ccd->nr;
    frame.size = ccd->pc;
    frame.aspect = ccd->pc / ccd->pr;
    if (dynamic_cast<const CameraCCDTR*>(&camera) != nullptr) {
      frame.right = {0.0, -1.0};
      frame.down = {-1.0, 0.0};
    }
  } else {
    frame.size = frame_pixel;
    frame.columns = static_cast<std::int32_t>(std::ceil(camera.sx / frame_pixel - 1e-6));
    frame.rows = static_cast<std::int32_t>(std::ceil(camera.sy / frame_pixel - 1e-6));
  }
  if (!(camera.c > 0.0) || !(frame.size > 0.0) || !(frame.aspect > 0.0) || frame.columns < 1 ||
      frame.rows < 1) {
    throw ExchangeError("camera " + camera.id +
                        ": focal length, pixels or format are not positive");
  }
  return frame;
}

SourceCamera closed_form(const Camera& camera, const LensSums& sums, PixelFrame& frame) {
  SourceCamera lens;
  lens.columns = frame.columns;
  lens.rows = frame.rows;
  const double c = camera.c;
  const double s = (c + sums.dc) / c;
  const double f = (c + sums.dc) / frame.size;
  // The affinity stretches image x, which is right, or up in an array turned by a quarter.
  const double stretch = sums.b1 * c / frame.size;
  lens.fx = f + stretch * frame.right[0] * frame.right[0];
  lens.fy = (f + stretch * frame.down[0] * frame.down[0]) * frame.aspect;
  const Pair principal{camera.xp + sums.dxp, camera.yp + sums.dyp};
  double power = 1.0;
  for (std::size_t i = 0; i < 3; ++i) {
    power *= c * c;
    lens.k[i] = sums.K[i] * power / s;
  }
  lens.p = {dot2(sums.P, frame.down) * c / s, dot2(sums.P, frame.right) * c / s};
  if (frame.form == LensForm::radial) {
    frame.origin = principal;
    lens.fy = lens.fx = f;
    lens.k[2] = 0.0;
    lens.p = {};
    return lens;
  }
  const Pixel centre = frame.pixel_of(principal);
  lens.cx = centre[0];
  lens.cy = centre[1];
  return lens;
}

// A direction and its image.
struct Sample {
  double u;
  double v;
  Pixel xy;
};

std::vector<Sample> samples_of(const Camera& camera, const PixelFrame& frame) {
  std::vector<Sample> samples;
  const double upwards = frame.form == LensForm::radial ? -1.0 : 1.0;
  for (int i = 0; i < kGrid; ++i) {
    for (int j = 0; j < kGrid; ++j) {
      const double x = (static_cast<double>(i) / (kGrid - 1) - 0.5) * camera.sx;
      const double y = (static_cast<double>(j) / (kGrid - 1) - 0.5) * camera.sy;
      const Vec3 ideal = camera.image_to_camera({x, y});
      const std::array<double, 2> at{ideal[0], ideal[1]};
      samples.push_back({dot2(at, frame.right) / camera.c,
                         upwards * dot2(at, frame.down) / camera.c,
                         frame.pixel_of(camera.camera_to_image(ideal))});
    }
  }
  return samples;
}

double largest_error(const SourceCamera& lens, const std::vector<Sample>& samples) {
  double largest = 0.0;
  for (const Sample& sample : samples) {
    const Pixel xy = image_of(lens, sample.u, sample.v);
    const double error = std::hypot(xy[0] - sample.xy[0], xy[1] - sample.xy[1]);
    if (!(error <= largest)) largest = error;
  }
  return largest;
}

// The parameters that are fitted; each has a step for its derivative.
struct FittedParameter {
  std::array<double*, 2> values;  // the second one follows the first, or is null
  double step;
};

std::vector<FittedParameter> parameters_of(SourceCamera& lens, LensForm form) {
  if (form == LensForm::radial) {
    return {{{&lens.fx, &lens.fy}, 1e-3 * lens.fx},
            {{&lens.k[0], nullptr}, 1e-3},
            {{&lens.k[1], nullptr}, 1e-3}};
  }
  std::vector<FittedParameter> all = {{{&lens.fx, nullptr}, 1e-3 * lens.fx},
                                      {{&lens.fy, nullptr}, 1e-3 * lens.fy},
                                      {{&lens.cx, nullptr}, 1.0},
                                      {{&lens.cy, nullptr}, 1.0}};
  for (double& k : lens.k) all.push_back({{&k, nullptr}, 1e-3});
  for (double& p : lens.p) all.push_back({{&p, nullptr}, 1e-3});
  return all;
}

void set(const FittedParameter& parameter, double value) {
  for (double* const target : parameter.values) {
    if (target != nullptr) *target = value;
  }
}

// One Gauss-Newton step of the differences over all samples. The model is linear in each parameter,
// so that a difference quotient is its derivative. False when the samples do not determine them.
bool improve(SourceCamera& lens, LensForm form, const std::vector<Sample>& samples) {
  const std::vector<FittedParameter> parameters = parameters_of(lens, form);
  const auto n = static_cast<std::int32_t>(parameters.size());
  Matrix normal(n, n);
  Vector rhs(n);
  normal.zero();
  rhs.zero();
  std::vector<Pixel> row(parameters.size());
  for (const Sample& sample : samples) {
    const Pixel computed = image_of(lens, sample.u, sample.v);
    for (std::size_t i = 0; i < parameters.size(); ++i) {
      const double value = *parameters[i].values[0];
      set(parameters[i], value + parameters[i].step);
      const Pixel moved = image_of(lens, sample.u, sample.v);
      set(parameters[i], value);
      row[i] = {moved[0] - computed[0], moved[1] - computed[1]};
    }
    for (std::size_t k = 0; k < 2; ++k) {
      const double difference = sample.xy[k] - computed[k];
      for (std::int32_t i = 0; i < n; ++i) {
        const double a = row[static_cast<std::size_t>(i)][k];
        rhs[i] += a * difference;
        for (std::int32_t j = i; j < n; ++j) {
          normal[i][j] += a * row[static_cast<std::size_t>(j)][k];
        }
      }
    }
  }
  Vector diagonal(n);
  Vector steps(n);
  if (cholesky(normal, diagonal) != 0) return false;
  if (back_substitution(normal, diagonal, rhs, steps) != 0) return false;
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const double change = steps[static_cast<std::int32_t>(i)] * parameters[i].step;
    set(parameters[i], *parameters[i].values[0] + change);
  }
  return true;
}

}  // namespace

Pixel PixelFrame::pixel_of(const Pair& image) const {
  const std::array<double, 2> from_origin{image[0] - origin[0], image[1] - origin[1]};
  const double column = dot2(from_origin, right) / size;
  const double row = dot2(from_origin, down) / size;
  if (form == LensForm::radial) return {column, -row};
  return {column + 0.5 * columns, row * aspect + 0.5 * rows};
}

ExportedLens export_lens(const Camera& camera, LensForm form, double frame_pixel) {
  constexpr int kSteps = 20;
  ExportedLens result;
  result.frame = frame_of(camera, form, frame_pixel);
  result.camera = closed_form(camera, sums_of(camera), result.frame);
  result.camera.id = camera.id;
  const std::vector<Sample> samples = samples_of(camera, result.frame);
  double error = largest_error(result.camera, samples);
  if (error <= kExact) return result;
  const SourceCamera start = result.camera;
  for (int i = 0; i < kSteps && improve(result.camera, form, samples); ++i) {
  }
  const double fitted = largest_error(result.camera, samples);
  if (!(fitted < error)) result.camera = start;
  result.largest_error = std::min(error, fitted);
  if (result.largest_error <= kExact) result.largest_error = 0.0;
  return result;
}

}  // namespace vorn::exchange
