// The file of the precision: standard deviations of all unknowns.

#include <algorithm>
#include <cmath>
#include <string>

#include "geometry/ext_orientation.h"
#include "quality/calibration.h"
#include "quality/text_reports.h"
#include "sensors/camera.h"

namespace vorn {
namespace {

constexpr double kMillimetres = 1e3;
constexpr double kMicrometres = 1e6;
constexpr NumberFormat kCoordinate = fixed(4, 14);
constexpr NumberFormat kSd = fixed(5, 10);
constexpr NumberFormat kSmall = scientific(3, 11);
constexpr NumberFormat kValue = scientific(8, 16);
constexpr NumberFormat kCorrelation = fixed(4, 8);
constexpr NumberFormat kDegrees = fixed(2, 7);
constexpr double kDegreesPerRadian = 57.295779513082320877;

void print_heading(TextWriter& out, std::string_view text, char underline = '-') {
  out << text << '\n' << std::string(text.size(), underline) << "\n\n";
}

void print_head(TextWriter& out, const QualityResults& results) {
  const QualitySettings& settings = results.settings;
  const QualityStatistics& statistics = results.statistics;
  print_heading(out, "Precision", '=');
  if (settings.prior) {
    out << "Standard deviations a priori: sigma 0 = "
        << fixed(4)(statistics.sigma0_used * kMicrometres) << " um as given.\n";
  } else if (!is_defined(statistics.sigma0_posterior)) {
    out << "There is no redundancy. Standard deviations a priori: sigma 0 = "
        << fixed(4)(statistics.sigma0_used * kMicrometres) << " um as given.\n";
  } else {
    out << "Standard deviations a posteriori: sigma 0 = "
        << fixed(4)(statistics.sigma0_used * kMicrometres) << " um, a priori "
        << fixed(4)(settings.sigma0_prior * kMicrometres)
        << " um.\nThey scale with their quotient throughout, those of control points and of other "
           "given values too.\n";
  }
  out << (settings.inner_datum
              ? "Datum: inner (free network, S-transformation); object points and orientations "
                "refer to the listed points as a whole.\n"
              : "Datum: as given by control and observed values.\n")
      << "Derivatives of the figures: exact, at the final values.\n";
  if (is_defined(statistics.distance_to_minimum)) {
    const Unknown& unknown = statistics.farthest;
    out << "Distance to the least-squares minimum: " << fixed(3)(statistics.distance_to_minimum)
        << " standard deviations (" << parameter_name(unknown) << " of " << unknown.object->id
        << "). The iterations used approximate derivatives.\n";
  }
  out << "Lengths in metres, angles in radians where no other unit stands.\n\n";
}

// Mean and largest of the standard deviations of a group.
struct Spread {
  std::int64_t count = 0;
  double sum = 0.0;
  double max = -1.0;
  std::string_view worst;

  void see(double sd, std::string_view id) {
    if (sd == 0.0) return;  // fixed
    ++count;
    sum += sd;
    if (sd <= max) return;
    max = sd;
    worst = id;
  }
  void print(TextWriter& out, std::string_view label, NumberFormat format) const {
    out << "  " << left_aligned(label, 26);
    out.integer(count, 8);
    if (count == 0) {
      out << "        ---         ---\n";
    } else {
      out << ' ' << format(sum / static_cast<double>(count)) << ' ' << format(max) << "  " << worst
          << '\n';
    }
  }
};

void print_spreads(TextWriter& out, const QualityResults& results) {
  constexpr std::string_view kAxes[] = {"X", "Y", "Z"};
  constexpr std::string_view kRoles[] = {"points without role", "control points",
                                         "intersection points", "check points"};
  print_heading(out, "Standard deviations by groups (fixed unknowns left out)");
  out << "  Group                        Number        Mean     Largest  of\n\n";
  Spread points[4][3];
  for (const PointResult& row : results.points) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      points[static_cast<std::size_t>(row.point->type)][axis].see(row.sd(axis), row.point->id);
    }
  }
  for (std::size_t role = 0; role < 4; ++role) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (points[role][axis].count == 0) continue;
      points[role][axis].print(
          out, std::string(kRoles[role]) + ", " + std::string(kAxes[axis]) + " [m]", kSmall);
    }
  }
  Spread centres[3];
  Spread rotations;
  for (const ParameterResult& row : results.parameters) {
    if (dynamic_cast<const ExtOrientation*>(row.unknown.object) == nullptr) continue;
    const auto k = static_cast<std::size_t>(row.unknown.k);
    (k < 3 ? centres[k] : rotations).see(row.sd, row.unknown.object->id);
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (centres[axis].count > 0) {
      centres[axis].print(out, "projection centres, " + std::string(kAxes[axis]) + "o [m]", kSmall);
    }
  }
  if (rotations.count > 0) rotations.print(out, "rotations [rad or 1]", kSmall);
  out << '\n';
}

// ---- calibration --------------------------------------------------------------------------------

void print_length(TextWriter& out, std::string_view label, const CalibratedValue& value,
                  double pixel) {
  out << "  " << left_aligned(label, 22) << fixed(6, 14)(value.value * kMillimetres) << ' '
      << fixed(6, 10)(value.sd * kMillimetres);
  if (pixel > 0.0) {
    out << "  " << fixed(3, 12)(value.value / pixel) << ' ' << fixed(3, 8)(value.sd / pixel);
  }
  out << '\n';
}

// Principal point in the measuring system of the camera, where that counts pixels.
void print_principal_point_in_pixels(TextWriter& out, const CalibratedCamera& row) {
  const Pair pixels =
      row.camera->image_to_pixel({row.principal_point[0].value, row.principal_point[1].value});
  out << "  Principal point at column " << fixed(3)(pixels[0]) << ", row " << fixed(3)(pixels[1])
      << " (" << row.camera->get_coord_system_name() << ")\n";
}

void print_distortion(TextWriter& out, const CalibratedCamera& row) {
  const double pixel = std::sqrt(row.pixel[0] * row.pixel[1]);
  out << "\n  Distortion along the diagonal of the format, inner orientation left out\n\n"
         "      r/mm      dx/um      dy/um  radial/um   sdev/um"
      << (pixel > 0.0 ? "  radial/px   sdev/px\n\n" : "\n\n");
  for (const DistortionRow& at : row.distortion) {
    out << fixed(4, 10)(at.radius * kMillimetres) << ' ' << fixed(3, 10)(at.dx * kMicrometres)
        << ' ' << fixed(3, 10)(at.dy * kMicrometres) << ' '
        << fixed(3, 10)(at.radial * kMicrometres) << ' ' << fixed(3, 9)(at.sd * kMicrometres);
    if (pixel > 0.0) {
      out << ' ' << fixed(4, 10)(at.radial / pixel) << ' ' << fixed(4, 9)(at.sd / pixel);
    }
    out << '\n';
  }
  out << '\n';
}

void print_calibration(TextWriter& out, const QualityResults& results) {
  for (const CalibratedCamera& row : calibrated_cameras(results)) {
    print_heading(out, "Calibration of camera " + row.camera->id);
    const bool pixels = row.pixel[0] > 0.0;
    out << "  Quantity                    Value/mm    Sdev/mm"
        << (pixels ? "      Value/px  Sdev/px\n\n" : "\n\n");
    const double mean_pixel = std::sqrt(row.pixel[0] * row.pixel[1]);
    print_length(out, "c + dc", row.principal_distance, mean_pixel);
    print_length(out, "xp + dxp", row.principal_point[0], row.pixel[0]);
    print_length(out, "yp + dyp", row.principal_point[1], row.pixel[1]);
    if (pixels) print_principal_point_in_pixels(out, row);
    out << "\n  Parameter                 Value             Sdev      |v|/s  Unit\n\n";
    for (const CalibratedValue& value : row.others) {
      out << "  " << left_aligned(value.name, 12) << ' ' << kValue(value.value) << "  "
          << (value.sd > 0.0 ? kValue(value.sd) : FormattedNumber(kValue(0.0))) << ' '
          << fixed(1, 10)(value.sd > 0.0 ? std::fabs(value.value) / value.sd : 0.0) << "  "
          << value.unit << '\n';
    }
    print_distortion(out, row);
  }
}

void print_ap_correlation(TextWriter& out, const APCorrelation& correlation) {
  constexpr std::size_t kMaxPrinted = 60;
  const std::size_t n = correlation.parameters.size();
  if (n == 0 || n > kMaxPrinted) return;
  print_heading(out, "Correlations of the additional parameters");
  for (std::size_t i = 0; i < n; ++i) {
    const Unknown& unknown = correlation.parameters[i];
    out << "  " << left_aligned(unknown.object->id, 10) << ' '
        << left_aligned(parameter_name(unknown), 8);
    for (std::size_t j = 0; j <= i; ++j) out << fixed(3, 7)(correlation.r[i * n + j]);
    out << '\n';
  }
  out << '\n';
}

// ---- unknowns -----------------------------------------------------------------------------------

void print_points(TextWriter& out, const QualityResults& results) {
  constexpr std::string_view kRoles[] = {"nu", "co", "in", "ch"};
  print_heading(out, "Object points");
  out << "  Point ID  Ty Rays              X              Y              Z         sX         sY"
         "         sZ          a          b          c  Angle/deg\n\n";
  for (const PointResult& row : results.points) {
    out << "  " << right_aligned(row.point->id, 8) << "  "
        << kRoles[static_cast<std::size_t>(row.point->type)];
    out.integer(row.rays, 5);
    for (const double coordinate : row.point->xyz) out << ' ' << kCoordinate(coordinate);
    for (std::size_t axis = 0; axis < 3; ++axis) out << ' ' << kSd(row.sd(axis));
    for (const double axis : row.semi_axes) out << ' ' << kSd(axis);
    if (is_defined(row.angle)) {
      out << "    " << kDegrees(row.angle * kDegreesPerRadian) << '\n';
    } else {
      out << "        ---\n";
    }
  }
  out << "\n  a, b, c: semi-axes of the error ellipsoid (one sigma). Angle: the largest between "
         "two "
         "rays.\n\n";
}

void print_parameters(TextWriter& out, const QualityResults& results) {
  if (results.parameters.empty()) return;
  print_heading(out, "Orientations, additional parameters, corrections");
  const AdjObject* last = nullptr;
  for (const ParameterResult& row : results.parameters) {
    const auto& [object, k] = row.unknown;
    if (object != last) {
      last = object;
      out << '\n'
          << object->get_type_name() << ' ' << object->id
          << "\n  Param.     State             Initial         Adjusted        Sdev   |v|/s  "
             "|dv|/s  Unit\n";
    }
    const ParamRecord& record = row.unknown.record();
    out << "  " << left_aligned(parameter_name(row.unknown), 10) << ' '
        << left_aligned(state_word(record.state), 9) << ' ' << kValue(record.initial) << ' '
        << kValue(*record.value) << ' ';
    if (row.unknown.is_fixed()) {
      out << "        ---     ---     ---";
    } else {
      out << kSmall(row.sd) << ' ' << general(7, 4)(std::fabs(*record.value) / row.sd) << ' '
          << general(7, 4)(std::fabs(*record.value - record.initial) / row.sd);
    }
    out << "  " << parameter_unit(row.unknown) << '\n';
  }
  out << '\n';
}

void print_correlations(TextWriter& out, const QualityResults& results) {
  constexpr std::int64_t kMaxListed = 100;  // of a kind
  print_heading(out, "Correlations of " +
                         std::to_string(results.settings.correlation_limit).substr(0, 5) +
                         " and more, by kinds");
  if (results.correlations_over_limit.empty()) out << "  none\n\n";
  for (const auto& [kind, count] : results.correlations_over_limit) {
    out << kind << ": " << count << '\n';
    std::int64_t listed = 0;
    for (const CorrelationResult& row : results.correlations) {
      if (correlation_kind(row.a, row.b) != kind) continue;
      if (++listed > kMaxListed) break;
      out << "  " << right_aligned(row.a.object->id, 10) << ' '
          << left_aligned(parameter_name(row.a), 6) << ' ' << right_aligned(row.b.object->id, 10)
          << ' ' << left_aligned(parameter_name(row.b), 6) << ' ' << kCorrelation(row.r) << '\n';
    }
    listed = std::min(listed, kMaxListed);
    if (count > listed) out << "  and " << count - listed << " more\n";
    out << '\n';
  }
}

}  // namespace

void print_precision(TextWriter& out, const QualityResults& results) {
  print_head(out, results);
  print_spreads(out, results);
  print_calibration(out, results);
  print_ap_correlation(out, results.ap_correlation);
  print_correlations(out, results);
  print_points(out, results);
  print_parameters(out, results);
}

}  // namespace vorn
