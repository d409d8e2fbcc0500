// The file of the reliability: what checks each observation, and what fails its test.

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "quality/text_reports.h"

namespace vorn {
namespace {

constexpr double kMicrometres = 1e6;
constexpr double kHardlyChecked = 0.1;
constexpr std::size_t kMaxListed = 1000;
constexpr NumberFormat kResidual = fixed(3, 9);
constexpr NumberFormat kRedundancy = fixed(3, 6);
constexpr NumberFormat kTest = fixed(2, 8);
constexpr NumberFormat kDetectable = fixed(2, 10);
constexpr NumberFormat kEffect = scientific(2, 9);
constexpr NumberFormat kShort = general(10, 4);

void print_heading(TextWriter& out, std::string_view text, char underline = '-') {
  out << text << '\n' << std::string(text.size(), underline) << "\n\n";
}

// A number, or a mark where it is not defined.
void put(TextWriter& out, NumberFormat format, double value) {
  if (is_defined(value)) {
    out << ' ' << format(value);
  } else {
    out << ' ' << right_aligned("---", format.width);
  }
}

void print_global_test(TextWriter& out, const QualityResults& results) {
  const QualityStatistics& statistics = results.statistics;
  const GlobalTest& test = statistics.global_test;
  print_heading(out, "Global test");
  if (!is_defined(test.statistic)) {
    out << "  There is no redundancy: nothing can be tested.\n\n";
    return;
  }
  out << "  v'Pv / sigma0^2 = " << general(0, 7)(test.statistic) << " with "
      << statistics.redundancy << " degrees of freedom; between " << general(0, 7)(test.lower)
      << " and " << general(0, 7)(test.upper) << " in "
      << general()(100.0 * results.settings.confidence) << " % of the cases.\n"
      << "  sigma 0 a posteriori " << fixed(4)(statistics.sigma0_posterior * kMicrometres)
      << " um, a priori " << fixed(4)(results.settings.sigma0_prior * kMicrometres) << " um.\n";
  if (test.passed) {
    out << "  Passed: residuals are as large as the given standard deviations say. Read w.\n\n";
  } else if (test.statistic > test.upper) {
    out << "  Failed: residuals are larger than the given standard deviations say. Either the "
           "standard deviations are too small,\n  or there are gross or systematic errors. As long "
           "as that is open, read tau: it refers to sigma 0 a posteriori.\n\n";
  } else {
    out << "  Failed: residuals are smaller than the given standard deviations say, which are too "
           "large. The test values w are too small;\n  read tau: it refers to sigma 0 a "
           "posteriori.\n\n";
  }
}

void print_sums(TextWriter& out, const QualityResults& results) {
  const QualityStatistics& statistics = results.statistics;
  const SumsByKind& sums = statistics.redundancy_sum;
  constexpr NumberFormat kSum = fixed(6, 18);
  print_heading(out, "Redundancy numbers, sums");
  out << "  image coordinates     " << kSum(sums.image) << "  of "
      << 2 * std::int64_t{statistics.image_points} << " observations\n"
      << "  observed parameters   " << kSum(sums.observed) << "  of "
      << statistics.observed_parameters << '\n'
      << "  constraints           " << kSum(sums.constraints) << "  of " << statistics.constraints
      << '\n'
      << "  total                 " << kSum(sums.total()) << "  redundancy "
      << statistics.redundancy << "\n\n";
}

void print_groups(TextWriter& out, const QualityResults& results) {
  print_heading(out, "Variance components");
  out << "  Group                     ID          Observations  Redundancy   sd factor        95 % "
         "band            Recommended\n\n";
  for (const GroupResult& row : results.groups) {
    out << "  " << left_aligned(row.group, 25) << ' ' << left_aligned(row.id, 10) << ' ';
    out.integer(row.observations, 13);
    out << ' ' << fixed(2, 11)(row.redundancy);
    put(out, fixed(3, 11), row.sd_factor);
    put(out, fixed(3, 10), std::sqrt(row.factor_lower));
    put(out, fixed(3, 10), std::sqrt(row.factor_upper));
    constexpr double kEnough = 2.0;  // redundancy below which a recommendation is chance
    if (row.redundancy < kEnough || !is_defined(row.sd_factor)) {
      out << "    none: too little redundancy\n";
    } else if (row.factor_lower <= 1.0 && 1.0 <= row.factor_upper) {
      out << "    keep the standard deviations\n";
    } else {
      out << "    multiply them by " << general(0, 3)(row.sd_factor) << '\n';
    }
  }
  out << "\n  The factor is one step of an estimation of variance components.\n\n";
}

void print_suspects(TextWriter& out, const QualityResults& results) {
  print_heading(out, "Suspects: tests that fail at alpha = " +
                         std::to_string(results.settings.alpha).substr(0, 5));
  if (results.suspects.empty()) out << "  none\n\n";
  if (results.suspects.empty()) return;
  out << "  Rank  Kind                  ID         Item              t  dof    log10 p  Worst "
         "of\n\n";
  std::int64_t rank = 0;
  for (const SuspectResult& row : results.suspects) {
    const bool is_image = row.image != nullptr;
    out.integer(++rank, 6) << "  " << left_aligned(suspect_kind(row), 20) << ' '
                           << right_aligned(is_image ? row.image->id : row.parameter.object->id, 8)
                           << ' '
                           << right_aligned(is_image ? std::string(row.image_point->id)
                                                     : parameter_name(row.parameter),
                                            8)
                           << ' ' << fixed(2, 14)(row.test.t);
    out.integer(row.test.degrees_of_freedom, 5) << ' ' << fixed(2, 10)(row.test.log10_p);
    if (row.worst_of_image) out << "  image";
    if (row.worst_of_point) out << "  point";
    out << '\n';
  }
  if (results.num_suspects > results.suspects.size()) {
    out << "  and " << static_cast<std::uint64_t>(results.num_suspects - results.suspects.size())
        << " more\n";
  }
  out << "\n  Nothing was removed. One error spoils the tests of its neighbours: look at the worst "
         "of an image and of a point first.\n\n";
}

void print_images(TextWriter& out, const QualityResults& results) {
  print_heading(out, "Images");
  out << "  Image     Points  rms vx/um  rms vy/um  Redundancy   max |w|\n\n";
  for (const ImageResult& row : results.images) {
    out << "  " << right_aligned(row.image->id, 8);
    out.integer(row.points, 8);
    put(out, fixed(3, 10), row.rms[0] * kMicrometres);
    put(out, fixed(3, 10), row.rms[1] * kMicrometres);
    put(out, fixed(3, 11), row.redundancy);
    put(out, fixed(2, 9), row.max_w);
    out << '\n';
  }
  out << '\n';
}

void print_hardly_checked(TextWriter& out, const QualityResults& results) {
  print_heading(out, "Hardly checked: redundancy number below 0.1");
  std::size_t count = 0;
  for (const ImagePointResult& row : results.image_points) {
    if (std::min(row.r[0], row.r[1]) >= kHardlyChecked || ++count > kMaxListed) continue;
    out << "  image "
        << right_aligned(results.images[static_cast<std::size_t>(row.image)].image->id, 8)
        << "  point " << right_aligned(row.point->id, 8) << "  rx" << kRedundancy(row.r[0])
        << "  ry" << kRedundancy(row.r[1]) << '\n';
  }
  for (const ObservedResult& row : results.observed_parameters) {
    if (row.r >= kHardlyChecked || ++count > kMaxListed) continue;
    out << "  " << object_type_name(object_type_of(*row.unknown.object)) << ' '
        << right_aligned(row.unknown.object->id, 8) << ' '
        << left_aligned(parameter_name(row.unknown), 8) << "  r" << kRedundancy(row.r) << '\n';
  }
  if (count == 0) out << "  none\n";
  if (count > kMaxListed) {
    out << "  and " << static_cast<std::uint64_t>(count - kMaxListed) << " more\n";
  }
  out << '\n';
}

void print_observed(TextWriter& out, const QualityResults& results) {
  if (results.observed_parameters.empty()) return;
  print_heading(out, "Observed parameters");
  out << "  Object      Param.            s          v      r        w      tau    log10 p        "
         "mdb     effect      error  Unit\n\n";
  for (const ObservedResult& row : results.observed_parameters) {
    const double w = standardised(row.v, row.s(), row.r);
    const double mdb = smallest_detectable(row.s(), row.r, results.settings.delta0);
    out << "  " << right_aligned(row.unknown.object->id, 10) << "  "
        << left_aligned(parameter_name(row.unknown), 8);
    put(out, kShort, row.s());
    put(out, kShort, row.v);
    put(out, kRedundancy, row.r);
    put(out, kTest, w);
    put(out, kTest, results.tau(w));
    put(out, fixed(2, 10), observed_test(row).log10_p);
    put(out, kShort, mdb);
    put(out, kShort, (1.0 - row.r) * mdb);
    put(out, kShort, estimated_error(row.v, row.r));
    out << "  " << parameter_unit(row.unknown) << '\n';
  }
  out << '\n';
}

void print_constraints(TextWriter& out, const QualityResults& results) {
  if (results.constraints.empty()) return;
  print_heading(out, "Constraints");
  for (const ConstraintResult& row : results.constraints) {
    out << "  " << right_aligned(row.object->id, 10) << "  " << row.constraint << "  misclosure "
        << scientific(2)(row.misclosure) << "  r " << kRedundancy(row.r) << '\n';
  }
  out << "\n  Conditions are kept exactly; nothing checks them.\n\n";
}

void print_image_point(TextWriter& out, const ImagePointResult& row,
                       const QualityResults& results) {
  const JointTest test = joint_test(row);
  out << "  " << right_aligned(row.point->id, 8);
  for (const double v : row.v) put(out, kResidual, v * kMicrometres);
  for (const double r : row.r) put(out, kRedundancy, r);
  std::array<double, 2> w{};
  for (std::size_t i = 0; i < 2; ++i) w[i] = standardised(row.v[i], row.s[i], row.r[i]);
  for (const double one : w) put(out, kTest, one);
  for (const double one : w) put(out, kTest, results.tau(one));
  put(out, kTest, test.t);
  out.integer(test.degrees_of_freedom, 4);
  put(out, fixed(2, 8), test.log10_p);
  for (std::size_t i = 0; i < 2; ++i) {
    put(out, kDetectable,
        smallest_detectable(row.s[i], row.r[i], results.settings.delta0) * kMicrometres);
  }
  for (const double effect : row.effect) put(out, kEffect, effect);
  out << '\n';
}

void print_image_points(TextWriter& out, const QualityResults& results) {
  print_heading(out, "Image points");
  for (const ImageResult& image : results.images) {
    out << "Image " << image.image->id
        << "\n  Point ID     vx/um     vy/um     rx     ry       wx       wy    tau x    tau y"
           "        t dof  log10 p   mdb x/um   mdb y/um  effect x  effect y\n";
    const auto begin = results.image_points.begin() + static_cast<std::ptrdiff_t>(image.first);
    std::for_each(begin, begin + image.points,
                  [&](const ImagePointResult& row) { print_image_point(out, row, results); });
    out << '\n';
  }
}

}  // namespace

void print_reliability(TextWriter& out, const QualityResults& results) {
  print_heading(out, "Reliability", '=');
  out << "Smallest detectable errors (mdb) for alpha = " << general()(results.settings.alpha)
      << " and power = " << general()(results.settings.power)
      << ": delta0 = " << fixed(4)(results.settings.delta0)
      << ".\nTheir effects are shifts of the object point [m], for parameters of the parameter "
         "itself.\n\n";
  print_global_test(out, results);
  print_sums(out, results);
  print_groups(out, results);
  print_suspects(out, results);
  print_hardly_checked(out, results);
  print_images(out, results);
  print_observed(out, results);
  print_constraints(out, results);
  print_image_points(out, results);
}

}  // namespace vorn
