// Sections that compare adjusted coordinates with those that were read.

#include <cmath>
#include <cstdint>
#include <string_view>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

// Statistics of the differences of one coordinate.
struct DifferenceSums {
  std::int32_t count = 0;
  double sum = 0;
  double sum_of_squares = 0;
  double max = 0;  // of the absolute values

  void add(double difference) {
    ++count;
    sum += difference;
    sum_of_squares += difference * difference;
    if (std::fabs(difference) > max) max = std::fabs(difference);
  }
  double average() const { return count > 0 ? sum / count : 0.0; }
  double rms() const { return count > 0 ? std::sqrt(sum_of_squares / count) : 0.0; }
};

// Labels of the lines of a summary.
struct SummaryLabels {
  std::string_view count;
  std::string_view max;
  std::string_view average;
  std::string_view rms;
};

// One row per point: adjusted coordinates and, for each component that `is_compared(point, c)`
// selects, `difference(initial, adjusted)`.
template <class IsCompared, class Difference>
void print_rows(TextWriter& out, const OwnedList<ObjectPoint>& points, PointType type,
                IsCompared is_compared, Difference difference, DifferenceSums (&sums)[3]) {
  constexpr NumberFormat kCoordinate = fixed(3, 12);
  constexpr NumberFormat kDifference = fixed(3, 9);
  for (const ObjectPoint& point : points) {
    if (point.type != type) continue;
    out << right_aligned(point.id, 8);
    for (const double coordinate : point.xyz) out << ' ' << kCoordinate(coordinate);
    out << "  ";
    for (std::int32_t c = 0; c < 3; ++c) {
      const auto component = static_cast<std::size_t>(c);
      if (!is_compared(point, component)) {
        out << "     ---  ";
        continue;
      }
      const double d = difference(point.param(c).initial, point.xyz[component]);
      out << ' ' << kDifference(d);
      sums[component].add(d);
    }
    out << '\n';
  }
}

void print_summary(TextWriter& out, const DifferenceSums (&sums)[3], const SummaryLabels& labels) {
  constexpr NumberFormat kCount = general(9);
  constexpr NumberFormat kDifference = fixed(3, 9);
  const auto& [x, y, z] = sums;
  out << labels.count;
  out << kCount(x.count) << ' ';
  out << kCount(y.count) << ' ';
  out << kCount(z.count) << '\n';
  out << labels.max << kDifference(x.max) << ' ' << kDifference(y.max) << ' ' << kDifference(z.max)
      << '\n';
  out << labels.average << kDifference(x.average()) << ' ' << kDifference(y.average()) << ' '
      << kDifference(z.average()) << '\n';
  out << labels.rms << kDifference(x.rms()) << ' ' << kDifference(y.rms()) << ' '
      << kDifference(z.rms()) << "\n\n";
}

}  // namespace

void BundleProject::print_check_points(TextWriter& out) const {
  out << "Check point analysis\n"
         "====================\n\n"
         "Point ID    X-new/m      Y-new/m      Z-new/m        DX/m      DY/m      DZ/m\n\n";
  DifferenceSums sums[3];
  print_rows(
      out, object_points, PointType::check,
      [](const ObjectPoint& point, std::size_t c) { return point.check[c]; },
      [](double initial, double adjusted) { return initial - adjusted; }, sums);
  out << "Summary of check point analysis\n"
         "-------------------------------\n"
         "Empirical accuracy in object space.\n\n"
         "                                  DX/m      DY/m      DZ/m\n\n";
  print_summary(out, sums,
                {"Number of differences       :  ", "Maximum of abs. differences :  ",
                 "Average of differences      :  ", "RMS of differences          :  "});
}

void BundleProject::print_control_residuals(TextWriter& out) const {
  out << "Control point residuals\n"
         "=======================\n\n"
         "Point ID        X/m          Y/m          Z/m      vX/m      vY/m      vZ/m\n\n";
  DifferenceSums sums[3];
  // The opposite sign of a check point's difference is on purpose: this is a correction.
  print_rows(
      out, object_points, PointType::control,
      [](const ObjectPoint& point, std::size_t c) {
        return ls_params().is_observed(point.std_devs[c]);
      },
      [](double initial, double adjusted) { return adjusted - initial; }, sums);
  out << "Std. dev. from control point residuals\n"
         "--------------------------------------\n"
         "                                 vX/m      vY/m      vZ/m\n\n";
  print_summary(out, sums,
                {"Number of residuals        :  ", "Maximum of abs. residuals  :  ",
                 "Average of residuals       :  ", "RMS of residuals           :  "});
}

}  // namespace vorn
