#include "app/report_page/lights.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <numbers>
#include <set>

#include "calibration/ap_set.h"
#include "sensors/camera.h"
#include "text/number_format.h"

namespace vorn::app {
namespace {

using Colour = Light::Colour;

// What a light says in each colour, and its limits in words. The numbers are those of `kLimits`.
struct LightText {
  std::string_view name;
  std::string_view title;
  std::string_view limits;
  std::string_view green;
  std::string_view amber;
  std::string_view red;
  std::string_view grey;
};

// The limits of all lights.
struct Limits {
  double sigma0_ratio_low = 0.5;
  double sigma0_ratio_high = 2.0;
  double suspect_level = 0.05;    // over the number of tests
  double suspects_amber = 0.001;  // of the image points
  double control_green = 3.0;     // |w|
  double control_amber = 5.0;
  double checks_green = 1.5;  // RMS over predicted standard deviations
  double checks_amber = 2.5;
  double redundancy_green = 0.5;  // mean redundancy number
  double redundancy_amber = 0.3;
  double hardly_checked = 0.1;  // redundancy number
  double hardly_green = 0.01;   // share of coordinates
  double hardly_amber = 0.05;
  std::int32_t rays = 3;
  double rays_amber = 0.8;  // share of points
  double angle = 5.0 * std::numbers::pi / 180.0;
  double angle_green = 0.01;  // share of points below
  double angle_amber = 0.05;
  double correlation = 0.95;
  double coverage_green = 0.8;
  double coverage_amber = 0.6;
};
constexpr Limits kLimits;

constexpr LightText kEnd = {"end",
                            "End of the adjustment",
                            "green: converged; amber: finished without convergence; red: failed",
                            "The iterations converged.",
                            "The iterations ended before the changes were small: look for weak "
                            "unknowns, or allow more iterations.",
                            "There is no result: the findings say what is missing.",
                            ""};
constexpr LightText kSigma0 = {
    "sigma0",
    "Sigma 0 against a priori",
    "green: inside the 95 % limits of chi-square; amber: ratio between 0.5 and 2; red: else",
    "The observations are as good as assumed.",
    "The observations are somewhat better or worse than assumed: adapt the a-priori standard "
    "deviations.",
    "The observations are far from what was assumed: look for gross errors first, then at the "
    "a-priori "
    "standard deviations.",
    "Without redundancy nothing checks the observations."};
constexpr LightText kSuspects = {
    "suspects",
    "Suspect observations",
    "green: none with a probability below 0.05 / number of tests; amber: up to 0.1 % of the image "
    "points; red: more",
    "No observation stands out.",
    "Look at the suspects in the table of residuals.",
    "There are gross errors: look at the worst residuals, exclude them and adjust again.",
    "Nothing can be tested."};
constexpr LightText kControl = {
    "control_residuals",
    "Control residuals",
    "green: all |w| below 3; amber: up to 5; red: above",
    "The network fits the control points.",
    "The worst control points deserve a second look.",
    "A control point is wrong: check its coordinates, its name and its image points.",
    "No observed control coordinate can be tested."};
constexpr LightText kChecks = {
    "check_points",
    "Check points",
    "green: RMS up to 1.5 times the predicted standard deviations; amber: up to 2.5; red: above",
    "The check points confirm the predicted precision.",
    "The differences are larger than predicted: look at the worst check points.",
    "The check points contradict the predicted precision: look for systematic errors.",
    "There are no check points: the accuracy is not confirmed by anything outside the adjustment."};
constexpr LightText kReliability = {
    "reliability",
    "Reliability",
    "green: mean redundancy number above 0.5 and below 1 % of the image coordinates hardly checked "
    "(r < 0.1); "
    "amber: above 0.3 and below 5 %; red: else",
    "Gross errors would show.",
    "Some observations are checked weakly: more rays per point would help.",
    "Gross errors could stay hidden: measure more rays per point.",
    "There are no redundancy numbers."};
constexpr LightText kRays = {"rays",
                             "Rays per point",
                             "green: all points 3 or more; amber: at least 80 %; red: fewer",
                             "Every point is measured in three images or more.",
                             "Points with two rays are checked in one direction only.",
                             "Most points hang on two rays: measure them in more images.",
                             "There are no points."};
constexpr LightText kAngles = {
    "angles",
    "Intersection angles",
    "green: fewer than 1 % of the points below 5 degrees; amber: fewer than 5 %; red: more",
    "The rays meet at good angles.",
    "Some points are weak in depth.",
    "Many points are weak in depth: take images from further apart.",
    "No intersection angles can be computed."};
constexpr LightText kCalibration = {
    "calibration",
    "Calibration",
    "green: free values significant, no correlation above 0.95 but K with K and P with the "
    "principal point; red: else",
    "The free additional parameters are significant and separable.",
    "",
    "Hold parameters that are not significant, or one of a strongly correlated pair.",
    "No additional parameter is free."};
constexpr LightText kCoverage = {
    "coverage",
    "Coverage of the format",
    "green: image points in 80 % of the cells (8 x 6) of each calibrated camera; amber: 60 %; red: "
    "fewer",
    "The image points cover the formats of the calibrated cameras.",
    "Parts of a format have no image points: the distortion is extrapolated there.",
    "Large parts of a format have no image points: measure points in the corners.",
    "No camera is calibrated."};

Light make(const LightText& text, Colour colour, std::string value) {
  const std::array<std::string_view, 4> sentences = {text.green, text.amber, text.red, text.grey};
  return {text.name,        text.title,  colour,
          std::move(value), text.limits, sentences[static_cast<std::size_t>(colour)]};
}

std::string decimal(double value, int decimals) {
  char buffer[64];
  return {buffer, write_number(buffer, value, fixed(decimals))};
}
std::string percent(double share) { return decimal(100.0 * share, 1) + " %"; }

// The colour of a figure that should be small, or large.
Colour small(double value, double green, double amber) {
  return value <= green ? Colour::green : value <= amber ? Colour::amber : Colour::red;
}
Colour large(double value, double green, double amber) {
  return value >= green ? Colour::green : value >= amber ? Colour::amber : Colour::red;
}

Light end_light(const QualityResults& results) {
  switch (results.status) {
    case RunStatus::converged:
      return make(kEnd, Colour::green, "converged");
    case RunStatus::not_converged:
      return make(kEnd, Colour::amber, "not converged");
    default:
      return make(kEnd, Colour::red, "failed");
  }
}

Light sigma0_light(const QualityResults& results) {
  const double ratio = results.statistics.sigma0_posterior / results.settings.sigma0_prior;
  if (!is_defined(ratio)) return make(kSigma0, Colour::grey, "no redundancy");
  const bool near = ratio >= kLimits.sigma0_ratio_low && ratio <= kLimits.sigma0_ratio_high;
  const Colour otherwise = near ? Colour::amber : Colour::red;
  return make(kSigma0, results.statistics.global_test.passed ? Colour::green : otherwise,
              "ratio " + decimal(ratio, 2));
}

Light suspects_light(const QualityResults& results) {
  std::vector<double> tests;
  for (const ImagePointResult& point : results.image_points) {
    const double p = joint_test(point).log10_p;
    if (is_defined(p)) tests.push_back(p);
  }
  for (const ObservedResult& observed : results.observed_parameters) {
    const double p = observed_test(observed).log10_p;
    if (is_defined(p)) tests.push_back(p);
  }
  if (tests.empty()) return make(kSuspects, Colour::grey, "no tests");
  const double limit = std::log10(kLimits.suspect_level / static_cast<double>(tests.size()));
  const auto count =
      std::count_if(tests.begin(), tests.end(), [limit](double p) { return p < limit; });
  const double share = static_cast<double>(count) /
                       static_cast<double>(std::max<std::size_t>(1, results.image_points.size()));
  return make(kSuspects, small(share, 0.0, kLimits.suspects_amber),
              std::to_string(count) + " of " + std::to_string(tests.size()) + " tests");
}

Light control_light(const QualityResults& results) {
  double worst = kUndefined;
  const ObservedResult* at = nullptr;
  for (const ObservedResult& observed : results.observed_parameters) {
    if (object_type_of(*observed.unknown.object) != ObjectType::object_point) continue;
    const double w = std::fabs(standardised(observed.v, observed.s(), observed.r));
    if (is_defined(w) && !(w <= worst)) {
      worst = w;
      at = &observed;
    }
  }
  if (at == nullptr) return make(kControl, Colour::grey, "not tested");
  return make(kControl, small(worst, kLimits.control_green, kLimits.control_amber),
              "largest |w| " + decimal(worst, 1) + " (" + at->unknown.object->id + ", " +
                  parameter_name(at->unknown) + ")");
}

Light checks_light(const QualityResults& results) {
  double sum = 0.0;
  std::int32_t count = 0;
  for (const CheckPointResult& check : results.check_points) {
    for (std::size_t c = 0; c < 3; ++c) {
      if (!is_defined(check.difference[c]) || !(check.sd[c] > 0.0)) continue;
      const double ratio = check.difference[c] / check.sd[c];
      sum += ratio * ratio;
      ++count;
    }
  }
  if (count == 0) return make(kChecks, Colour::grey, "none");
  const double rms = std::sqrt(sum / count);
  return make(kChecks, small(rms, kLimits.checks_green, kLimits.checks_amber),
              "RMS " + decimal(rms, 2) + " standard deviations");
}

Light reliability_light(const QualityResults& results) {
  double sum = 0.0;
  std::int64_t hardly = 0;
  for (const ImagePointResult& point : results.image_points) {
    for (const double r : point.r) {
      sum += r;
      hardly += r < kLimits.hardly_checked ? 1 : 0;
    }
  }
  const double count = 2.0 * static_cast<double>(results.image_points.size());
  if (count == 0.0 || !results.has_figures) return make(kReliability, Colour::grey, "not computed");
  const double mean = sum / count;
  const double share = static_cast<double>(hardly) / count;
  const auto within = [&](double redundancy, double hidden) {
    return mean > redundancy && share < hidden;
  };
  const Colour otherwise =
      within(kLimits.redundancy_amber, kLimits.hardly_amber) ? Colour::amber : Colour::red;
  return make(kReliability,
              within(kLimits.redundancy_green, kLimits.hardly_green) ? Colour::green : otherwise,
              "mean redundancy number " + decimal(mean, 2) + ", hardly checked " + percent(share));
}

Light rays_light(const QualityResults& results) {
  if (results.points.empty()) return make(kRays, Colour::grey, "no points");
  const auto enough =
      std::count_if(results.points.begin(), results.points.end(),
                    [](const PointResult& point) { return point.rays >= kLimits.rays; });
  const double share = static_cast<double>(enough) / static_cast<double>(results.points.size());
  return make(kRays, large(share, 1.0, kLimits.rays_amber),
              percent(share) + " of the points with 3 rays or more");
}

Light angles_light(const QualityResults& results) {
  std::int64_t all = 0;
  std::int64_t flat = 0;
  for (const PointResult& point : results.points) {
    if (!is_defined(point.angle)) continue;
    ++all;
    flat += point.angle < kLimits.angle ? 1 : 0;
  }
  if (all == 0) return make(kAngles, Colour::grey, "not computed");
  const double share = static_cast<double>(flat) / static_cast<double>(all);
  const Colour otherwise = share < kLimits.angle_amber ? Colour::amber : Colour::red;
  return make(kAngles, share < kLimits.angle_green ? Colour::green : otherwise,
              percent(share) + " of the points below 5 degrees");
}

bool is_radial(std::string_view name) { return name.starts_with('K'); }
bool is_decentering(std::string_view name) { return name.starts_with('P'); }
bool is_principal_point(std::string_view name) { return name == "dxp" || name == "dyp"; }

// Pairs that are correlated in every camera and do no harm.
bool is_usual_pair(std::string_view a, std::string_view b) {
  return (is_radial(a) && is_radial(b)) || (is_decentering(a) && is_principal_point(b)) ||
         (is_principal_point(a) && is_decentering(b));
}

// The first additional parameter that is not significant; null where all are.
const ParameterResult* first_insignificant(const QualityResults& results, bool& any_free) {
  const ParameterResult* found = nullptr;
  for (const ParameterResult& parameter : results.parameters) {
    if (object_type_of(*parameter.unknown.object) != ObjectType::ap_set ||
        parameter.unknown.is_fixed())
      continue;
    any_free = true;
    const double ratio = std::fabs(*parameter.unknown.record().value) / parameter.sd;
    if (found == nullptr && !(ratio > results.settings.significance_limit)) found = &parameter;
  }
  return found;
}

Light calibration_light(const QualityResults& results) {
  bool any_free = false;
  const ParameterResult* const weak = first_insignificant(results, any_free);
  if (!any_free || !results.has_figures) {
    return make(kCalibration, Colour::grey, "no free parameters");
  }
  if (weak != nullptr) {
    return make(
        kCalibration, Colour::red,
        parameter_name(weak->unknown) + " of " + weak->unknown.object->id + " is not significant");
  }
  const std::vector<Unknown>& names = results.ap_correlation.parameters;
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      const double r = results.ap_correlation.r[i * names.size() + j];
      const std::string a = parameter_name(names[j]);
      const std::string b = parameter_name(names[i]);
      if (!(std::fabs(r) > kLimits.correlation) || is_usual_pair(a, b)) continue;
      return make(kCalibration, Colour::red, a + " with " + b + ": " + decimal(r, 3));
    }
  }
  return make(kCalibration, Colour::green, "all significant and separable");
}

bool is_calibrated(const Camera& camera) {
  return std::any_of(camera.ap_sets.begin(), camera.ap_sets.end(), [](const APSet* set) {
    return set != nullptr && set->count_state(ParamState::eliminated) < set->num_ap();
  });
}

int cell_of(double value, double size, int cells) {
  const double place = (value / size + 0.5) * cells;
  return std::clamp(static_cast<int>(std::floor(place)), 0, cells - 1);
}

Light coverage_light(const QualityResults& results) {
  const double share = coverage(results);
  if (!is_defined(share)) return make(kCoverage, Colour::grey, "no calibrated camera");
  return make(kCoverage, large(share, kLimits.coverage_green, kLimits.coverage_amber),
              percent(share) + " of the cells");
}

}  // namespace

std::string_view colour_name(Light::Colour colour) {
  constexpr std::array<std::string_view, 4> kNames = {"green", "amber", "red", "grey"};
  return kNames[static_cast<std::size_t>(colour)];
}

double coverage(const QualityResults& results) {
  std::map<const Camera*, std::set<int>> cells;
  for (const ImageResult& image : results.images) {
    const Camera& camera = *image.image->camera;
    if (!is_calibrated(camera)) continue;
    std::set<int>& covered = cells[&camera];
    for (std::int32_t k = 0; k < image.points; ++k) {
      const ImagePoint& point =
          *results.image_points[image.first + static_cast<std::size_t>(k)].point;
      const Pair xy = camera.pixel_to_image({point.x, point.y});
      covered.insert(cell_of(xy[1], camera.sy, kCoverageRows) * kCoverageColumns +
                     cell_of(xy[0], camera.sx, kCoverageColumns));
    }
  }
  double smallest = kUndefined;
  for (const auto& [camera, covered] : cells) {
    const double share = static_cast<double>(covered.size()) / (kCoverageColumns * kCoverageRows);
    if (!(share >= smallest)) smallest = share;
  }
  return smallest;
}

std::vector<Light> find_lights(const QualityResults& results) {
  std::vector<Light> lights = {end_light(results)};
  // A run that failed has nothing else to be judged.
  if (results.status == RunStatus::failed) return lights;
  for (Light (*const light)(const QualityResults&) :
       {sigma0_light, suspects_light, control_light, checks_light, reliability_light, rays_light,
        angles_light, calibration_light, coverage_light}) {
    lights.push_back(light(results));
  }
  return lights;
}

}  // namespace vorn::app
