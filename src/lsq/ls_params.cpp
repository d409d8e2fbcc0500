#include "lsq/ls_params.h"

#include <array>
#include <string>
#include <string_view>

namespace vorn {
namespace {

constexpr std::array<std::string_view, 2> kInterfaces = {"native", "lapack"};
constexpr double kMicrometresPerMetre = 1e6;

int refuse(std::string_view message) {
  standard_output() << message;
  return -1;
}

int refuse(std::string_view message, std::string_view word) {
  standard_output() << message << word << '\n';
  return -1;
}

// The settings whose numbers are not tested for a failed read.
void read_iteration_settings(TokenReader& in, LSParams& settings) {
  in.read(settings.sigma0_apriori);
  in.read(settings.max_iterations);
  for (bool* field : {&settings.check_points, &settings.check_position, &settings.check_rotation,
                      &settings.check_geometry}) {
    in.read(*field);
  }
  for (double* field : {&settings.limit_points, &settings.limit_position, &settings.limit_rotation,
                        &settings.limit_geometry, &settings.smin, &settings.smax, &settings.sminu,
                        &settings.smaxu}) {
    in.read(*field);
  }
}

void read_weights_and_limits(TokenReader& in, LSParams& settings) {
  for (double* field :
       {&settings.weight_suppression, &settings.weight_constraints, &settings.correlation_limit,
        &settings.increment_points, &settings.increment_angles, &settings.significance_limit,
        &settings.apv_limit}) {
    in.read(*field);
  }
  double limit_um = settings.residual_limit * kMicrometresPerMetre;
  if (in.read(limit_um)) settings.residual_limit = limit_um / kMicrometresPerMetre;
}

}  // namespace

LSParams& ls_params() {
  static LSParams settings;
  return settings;
}

int LSParams::read(TokenReader& in) {
  read_iteration_settings(in, *this);
  // Negated, so that limits that are not numbers are refused.
  if (!(smin >= 0.0 && smax >= 0.0 && sminu >= 0.0 && smaxu >= 0.0)) {
    return refuse("ERROR: Limits of std. devs. must be >= than zero.\n");
  }
  if (!(sminu < smin)) return refuse("ERROR: sminu must be less than smin.\n");
  if (!(smaxu > smax)) return refuse("ERROR: smaxu must be greater than smax.\n");
  read_weights_and_limits(in, *this);

  std::string word;
  if (!in.read_word(word)) return refuse("Reading unit of object coords. failed.\n");
  if (!unit_object.set(word)) return refuse("Unknown unit of object coords.: ", word);
  if (!in.read_word(word)) return refuse("Reading unit of rotation angles failed.\n");
  if (!unit_angles.set(word)) return refuse("Unknown unit of rot. angles: ", word);
  word.clear();
  in.read_word(word);
  for (std::size_t code = 0; code < kInterfaces.size(); ++code) {
    if (word == kInterfaces[code]) {
      interface = static_cast<std::int32_t>(code);
      return 1;
    }
  }
  return refuse("Unknown adjustment interface: ", word);
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
