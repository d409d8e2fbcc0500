#include "lsq/ls_params.h"

#include <array>
#include <string_view>

#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {
namespace {

constexpr std::array<std::string_view, 2> kInterfaces = {"native", "lapack"};
constexpr double kMicrometresPerMetre = 1e6;

// The numbers are not tested for a failed read: the end of the file shows it.

void read_iteration_settings(TokenReader& in, LSParams& settings) {
  in.read(settings.sigma0_apriori, {"sigma 0 a priori", Range::positive});
  in.remember(&settings, in.last_word(), place_of::kSigma0);
  in.read(settings.max_iterations, {"the maximum number of iterations", Range::not_negative});
  in.read(settings.check_points, {"the convergence switch of object points"});
  in.read(settings.check_position, {"the convergence switch of perspective centres"});
  in.read(settings.check_rotation, {"the convergence switch of rotations"});
  in.read(settings.check_geometry, {"the convergence switch of image geometries"});
  in.read(settings.limit_points, {"the convergence limit of object points", Range::not_negative});
  in.read(settings.limit_position,
          {"the convergence limit of perspective centres", Range::not_negative});
  in.read(settings.limit_rotation, {"the convergence limit of rotations", Range::not_negative});
  in.read(settings.limit_geometry,
          {"the convergence limit of image geometries", Range::not_negative});
}

// True when they divide standard deviations into fixed, observed and free; otherwise `failure` is
// the message.
bool read_std_dev_limits(TokenReader& in, LSParams& settings, std::string_view& failure) {
  in.read(settings.smin, {"smin", Range::not_negative});
  in.read(settings.smax, {"smax", Range::not_negative});
  const std::string_view smax_word = in.last_word();
  in.read(settings.sminu, {"sminu", Range::not_negative});
  const std::string_view sminu_word = in.last_word();
  in.read(settings.smaxu, {"smaxu", Range::not_negative});
  // Negated, so that limits that are not numbers are refused.
  if (!(settings.smin >= 0.0 && settings.smax >= 0.0 && settings.sminu >= 0.0 &&
        settings.smaxu >= 0.0)) {
    failure = "ERROR: Limits of std. devs. must be >= than zero.\n";
    return false;
  }
  const bool numbers = in.ok();  // what is wrong with the others was reported
  if (numbers && !(settings.smin <= settings.smax)) {
    in.report(FindingCode::value_range, smax_word, "smax must not be less than smin", {}, "smax");
  }
  if (!(settings.sminu < settings.smin)) {
    failure = "ERROR: sminu must be less than smin.\n";
    if (numbers) {
      in.report(FindingCode::value_range, sminu_word, "sminu must be less than smin", {}, "sminu");
    }
    return false;
  }
  if (!(settings.smaxu > settings.smax)) {
    failure = "ERROR: smaxu must be greater than smax.\n";
    if (numbers) {
      in.report(FindingCode::value_range, in.last_word(), "smaxu must be greater than smax", {},
                "smaxu");
    }
    return false;
  }
  return true;
}

void read_weights_and_limits(TokenReader& in, LSParams& settings) {
  in.read(settings.weight_suppression, {"the weight of suppression", Range::positive});
  in.read(settings.weight_constraints, {"the weight of constraints", Range::not_negative});
  in.read(settings.correlation_limit, {"the limit of correlations"});
  in.read(settings.increment_points, {"the increment of object points"});
  in.read(settings.increment_angles, {"the increment of angles"});
  in.read(settings.significance_limit, {"the limit of significance", Range::not_negative});
  in.read(settings.apv_limit, {"the limit of A'Pv", Range::not_negative});
  double limit_um = settings.residual_limit * kMicrometresPerMetre;
  if (in.read(limit_um, {"the limit of printed residuals", Range::not_negative})) {
    settings.residual_limit = limit_um / kMicrometresPerMetre;
  }
}

}  // namespace

LSParams& ls_params() {
  static LSParams settings;
  return settings;
}

int LSParams::read(TokenReader& in) {
  in.begin_record({"ls-params"});
  constexpr std::size_t kNumbers = 22;
  report_few_numbers(in, kNumbers, "ls-params", [](std::string_view word) {
    return UnitLength().set(word) || word == kInterfaces[0];
  });
  read_iteration_settings(in, *this);
  std::string_view failure;
  if (!read_std_dev_limits(in, *this, failure)) return reading_failed(failure);
  read_weights_and_limits(in, *this);

  std::string_view word;
  if (!in.need_word(word, "the unit of object coordinates")) {
    return reading_failed("Reading unit of object coords. failed.\n");
  }
  if (!unit_object.set(word)) {
    report_unknown_word(in, word, "length unit", length_unit_names());
    return reading_failed("Unknown unit of object coords.: ", word, '\n');
  }
  if (!in.need_word(word, "the unit of rotation angles")) {
    return reading_failed("Reading unit of rotation angles failed.\n");
  }
  if (!unit_angles.set(word)) {
    report_unknown_word(in, word, "angle unit", angle_unit_names());
    return reading_failed("Unknown unit of rot. angles: ", word, '\n');
  }
  // A missing word is an unknown one.
  if (!in.need_word(word, "the adjustment interface")) word = {};
  for (std::size_t code = 0; code < kInterfaces.size(); ++code) {
    if (word == kInterfaces[code]) {
      interface = static_cast<std::int32_t>(code);
      return 1;
    }
  }
  report_unknown_word(in, word, "adjustment interface", kInterfaces);
  return reading_failed("Unknown adjustment interface: ", word, '\n');
}

void LSParams::print(TextWriter& out) const {
  constexpr NumberFormat kScientific = scientific(2, 8);
  constexpr NumberFormat kFixed = fixed(2, 8);
  constexpr NumberFormat kLimit = fixed(4, 8);
  const auto on_off = [](bool value) { return std::string_view(value ? "on" : "off"); };
  out << "Least-squares parameters/options\n"
         "================================\n"
      << "Standard deviation of unit weight  :  " << kScientific(sigma0_apriori) << '\n'
      << "Maximum number of iterations       :  " << max_iterations << "\n\n"
      << "Unknowns used for iteration criterion\n"
      << "  - object point coords.           :  " << on_off(check_points) << '\n'
      << "  - perspective centre coords.     :  " << on_off(check_position) << '\n'
      << "  - rotation parameters            :  " << on_off(check_rotation) << '\n'
      << "  - image geometry parameters      :  " << on_off(check_geometry) << '\n'
      << "Convergence limits\n"
      << "  - object point coords.           :  " << kLimit(limit_points) << " m\n"
      << "  - perspective centre coords.     :  " << kLimit(limit_position) << " m\n"
      << "  - rotation parameters            :  " << kScientific(limit_rotation) << '\n'
      << "  - image geometry parameters      :  " << kScientific(limit_geometry) << '\n'
      << "Limit of std. dev. to indicate that\n"
      << "  - unknown should be eliminated   :  " << kScientific(smin) << '\n'
      << "  - value is an unknown            :  " << kScientific(smax) << '\n'
      << "Value of std. dev. to indicate that\n"
      << "  - unknown is fixed               :  " << kScientific(sminu) << '\n'
      << "  - unknown is free                :  " << kScientific(smaxu) << '\n'
      << "Weight for suppression of unknowns :  " << kScientific(weight_suppression) << '\n'
      << "Weight for constraints             :  " << kScientific(weight_constraints) << '\n'
      << "Output limit of correlation coeffs :  " << kFixed(correlation_limit) << '\n'
      << "Increment for num. derivatives\n"
      << "  - object point coordinates       :  " << kScientific(increment_points) << " m\n"
      << "  - rotation angles                :  " << kScientific(increment_angles) << " rad\n"
      << "Limit for single significance test :  " << kFixed(significance_limit) << '\n'
      << "Limit for A'Pv-check               :  " << kScientific(apv_limit) << '\n'
      << "Limit for printing residuals       :  " << kFixed(residual_limit * kMicrometresPerMetre)
      << " um\n\n"
      << "Unit of object space coords.       :  " << unit_object.abbreviation() << '\n'
      << "Unit of rotation angles            :  " << unit_angles.abbreviation() << "\n\n"
      << "Adjustment interface               :  ";
  if (interface >= 0 && static_cast<std::size_t>(interface) < kInterfaces.size()) {
    out << kInterfaces[static_cast<std::size_t>(interface)];
  }
  out << "\n\n";
}

}  // namespace vorn
