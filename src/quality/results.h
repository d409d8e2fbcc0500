#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "geometry/vec3.h"
#include "lsq/stages/statistics.h"
#include "quality/ellipsoid.h"
#include "quality/unknown.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

// What an adjustment is worth: precision (Koch 1999), reliability (Baarda 1968, Foerstner 1987) and
// variance components (Foerstner 1979) of everything that took part. Results point to the objects
// of the project, which outlives them. What is not defined is NaN.

constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();
[[nodiscard]] inline bool is_defined(double value) { return std::isfinite(value); }

// Redundancy numbers below this say that nothing checks the observation.
constexpr double kSmallestRedundancy = 1e-6;

enum class RunStatus : std::uint8_t { converged, not_converged, failed };

struct QualitySettings {
  bool rigorous_iterations = false;
  bool inner_datum = false;
  bool prior = false;         // standard deviations a priori, not a posteriori
  double sigma0_prior = 0.0;  // [m]
  double alpha = 0.001;
  double power = 0.8;
  double delta0 = 0.0;  // noncentrality of alpha and power
  double confidence = 0.95;
  double correlation_limit = 0.0;
  double significance_limit = 0.0;
};

struct GlobalTest {
  double statistic = kUndefined;
  double lower = kUndefined;
  double upper = kUndefined;
  bool passed = false;
};

// v'Pv and the sum of redundancy numbers of image coordinates, observed parameters, constraints.
struct SumsByKind {
  double image = 0.0;
  double observed = 0.0;
  double constraints = 0.0;
  double total() const { return image + observed + constraints; }
};

struct QualityStatistics {
  std::int32_t images = 0;
  std::int32_t points = 0;
  std::int32_t image_points = 0;
  std::int32_t unknowns = 0;
  std::int32_t observed_parameters = 0;
  std::int32_t fixed_parameters = 0;
  std::int32_t constraints = 0;
  std::int32_t redundancy = 0;
  SumsByKind vtpv;  // [m2]
  SumsByKind redundancy_sum;
  double sigma0_posterior = kUndefined;  // [m]
  double sigma0_used = 0.0;              // the factor in every standard deviation [m]
  GlobalTest global_test;
  double rms_vx = kUndefined;  // [m]
  double rms_vy = kUndefined;
  double distance_to_minimum = kUndefined;  // largest |dx|/sd; undefined after rigorous iterations
  Unknown farthest;                         // the unknown of that distance
};

// Observations that share an accuracy, and the factor of their variances (Foerstner 1979).
struct GroupResult {
  std::string_view group;
  std::string id;  // of the camera, set or correction; empty where there is none
  std::int64_t observations = 0;
  double redundancy = 0.0;
  double vtpv = 0.0;  // [m2]
  double factor = kUndefined;
  double factor_lower = kUndefined;
  double factor_upper = kUndefined;
  double sd_factor = kUndefined;
};

struct PointResult {
  const ObjectPoint* point = nullptr;
  std::int32_t rays = 0;
  std::int32_t component = 0;
  Symmetric3 covariance{};    // [m2]
  Vec3 semi_axes{};           // of the error ellipsoid, whose directions follow from the above [m]
  double angle = kUndefined;  // largest intersection angle [rad]
  double redundancy = 0.0;    // of its image points

  double sd(std::size_t axis) const {
    constexpr std::array<std::size_t, 3> kDiagonal = {0, 3, 5};
    return std::sqrt(covariance[kDiagonal[axis]]);
  }
};

struct ParameterResult {
  Unknown unknown;
  double sd = 0.0;
};

// Two coordinates of one image point. What follows from these numbers by a formula is computed
// where it is asked for: see PointTest.
struct ImagePointResult {
  const ImagePoint* point = nullptr;
  std::int32_t image = 0;         // its place among the images of the results
  std::int32_t object_point = 0;  // likewise among the points
  std::array<double, 2> v{};      // computed - measured [m]
  std::array<double, 2> s{};      // a priori [m]
  std::array<double, 2> r{};
  double rxy = 0.0;
  std::array<double, 2> effect{};  // of the smallest detectable errors on the object point [m]
};

// The joint test of both coordinates of an image point (Foerstner 1987).
struct JointTest {
  double t = kUndefined;
  int degrees_of_freedom = 0;
  double log10_p = kUndefined;
};
[[nodiscard]] JointTest joint_test(const ImagePointResult& result);

// Standardised residual w = v / (s sqrt(r)) (Baarda 1968), and what else follows from an
// observation and its redundancy number.
[[nodiscard]] double standardised(double v, double s, double r);
[[nodiscard]] double smallest_detectable(double s, double r, double delta0);
[[nodiscard]] double estimated_error(double v, double r);

struct ObservedResult {
  Unknown unknown;
  double v = 0.0;  // adjusted - given
  double r = 0.0;
  double given() const { return unknown.record().initial; }
  double s() const { return *unknown.record().std_dev; }
};

struct ConstraintResult {
  const AdjObject* object = nullptr;
  std::string_view constraint;
  double misclosure = 0.0;
  double r = 0.0;  // a hard condition is not checked by anything
};

struct ImageResult {
  const BundleImage* image = nullptr;
  std::size_t first = 0;  // of its image points among all
  std::int32_t points = 0;
  std::array<double, 2> rms{kUndefined, kUndefined};  // of the residuals [m]
  double vtpv = 0.0;                                  // [m2]
  double redundancy = 0.0;
  double max_w = kUndefined;  // the largest |w|
};

// The test of a parameter's own observation: w^2 with one degree of freedom.
[[nodiscard]] JointTest observed_test(const ObservedResult& result);

// Correlation of two unknowns, a in front of b.
struct CorrelationResult {
  Unknown a;
  Unknown b;
  double r = 0.0;
};
// "within_orientation", "object_point_and_ap_set", ...
[[nodiscard]] std::string correlation_kind(const Unknown& a, const Unknown& b);

// Correlations of all additional parameters that are not fixed, row by row.
struct APCorrelation {
  std::vector<Unknown> parameters;
  std::vector<double> r;
};

struct CheckPointResult {
  const ObjectPoint* point = nullptr;
  Vec3 difference{};  // given - adjusted
  Vec3 sd{};
};

// An observation that fails its test: of an image point, or of a parameter.
struct SuspectResult {
  const BundleImage* image = nullptr;  // null for a parameter
  const ImagePoint* image_point = nullptr;
  Unknown parameter;
  JointTest test;
  bool worst_of_image = false;
  bool worst_of_point = false;
};
// "image_point" or the type of the parameter's object.
[[nodiscard]] std::string_view suspect_kind(const SuspectResult& suspect);

// The part of what is observed about an unknown that no other unknown can take over: 1/(N_ii Q_ii).
struct ToleranceResult {
  Unknown unknown;
  double value = 0.0;
};

struct QualityResults {
  RunStatus status = RunStatus::failed;
  std::string message;  // of a run that failed
  std::string control_file;
  // False for a document without figures of quality.
  bool has_figures = false;
  QualitySettings settings;
  QualityStatistics statistics;
  std::vector<IterationStatistics> iterations;
  std::vector<GroupResult> groups;
  APCorrelation ap_correlation;
  std::vector<PointResult> points;
  std::vector<ParameterResult> parameters;
  std::vector<ImageResult> images;
  std::vector<ImagePointResult> image_points;  // image by image
  std::vector<ObservedResult> observed_parameters;
  std::vector<ConstraintResult> constraints;
  std::vector<CorrelationResult> correlations;  // the largest ones, descending
  std::map<std::string, std::int64_t> correlations_over_limit;
  std::vector<CheckPointResult> check_points;
  std::vector<ToleranceResult> smallest_tolerances;  // ascending
  std::vector<SuspectResult> suspects;               // the smallest probabilities first
  std::size_t num_suspects = 0;                      // with those that the list has no room for

  // Pope's tau (1976): w with the standard deviation of unit weight a posteriori.
  double tau(double w) const { return w * settings.sigma0_prior / statistics.sigma0_posterior; }
};

}  // namespace vorn
