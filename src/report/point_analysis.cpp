// Sections that compare adjusted coordinates with those that were read.

#include "report/point_analysis.h"

#include <cmath>
#include <cstdint>
#include <string_view>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

// Differences of the points of a type, `difference(initial, adjusted)`, for each component that
// `is_compared(point, c)` selects.
template <class IsCompared, class Difference>
PointDifferences compute(const OwnedList<ObjectPoint>& points, PointType type,
                         IsCompared is_compared, Difference difference) {
  PointDifferences differences;
  for (const ObjectPoint& point : points) {
    if (point.type != type) continue;
    PointDifference& entry = differences.points.emplace_back();
    entry.point = &point;
    for (std::size_t c = 0; c < 3; ++c) {
      entry.compared[c] = is_compared(point, c);
      if (!entry.compared[c]) continue;
      entry.difference[c] =
          difference(point.param(static_cast<std::int32_t>(c)).initial, point.xyz[c]);
      differences.statistics[c].add(entry.difference[c]);
    }
  }
  return differences;
}

// Labels of the lines of a summary.
struct SummaryLabels {
  std::string_view count;
  std::string_view max;
  std::string_view average;
  std::string_view rms;
};

// One row per point: adjusted coordinates and differences.
void print_rows(TextWriter& out, const PointDifferences& differences) {
  constexpr NumberFormat kCoordinate = fixed(3, 12);
  constexpr NumberFormat kDifference = fixed(3, 9);
  for (const PointDifference& entry : differences.points) {
    out << right_aligned(entry.point->id, 8);
    for (const double coordinate : entry.point->xyz) out << ' ' << kCoordinate(coordinate);
    out << "  ";
    for (std::size_t c = 0; c < 3; ++c) {
      if (entry.compared[c]) {
        out << ' ' << kDifference(entry.difference[c]);
      } else {
        out << "     ---  ";
      }
    }
    out << '\n';
  }
}

void print_summary(TextWriter& out, const PointDifferences& differences,
                   const SummaryLabels& labels) {
  constexpr NumberFormat kCount = general(9);
  constexpr NumberFormat kDifference = fixed(3, 9);
  const auto& [x, y, z] = differences.statistics;
  out << labels.count;
  out << kCount(x.count) << ' ';
  out << kCount(y.count) << ' ';
  out << kCount(z.count) << '\n';
  out << labels.max << kDifference(x.max) << ' ' << kDifference(y.max) << ' ' << kDifference(z.max)
      << '\n';
  out << labels.average << kDifference(x.mean()) << ' ' << kDifference(y.mean()) << ' '
      << kDifference(z.mean()) << '\n';
  out << labels.rms << kDifference(x.rms()) << ' ' << kDifference(y.rms()) << ' '
      << kDifference(z.rms()) << "\n\n";
}

}  // namespace

void DifferenceStatistics::add(double difference) {
  ++count;
  sum += difference;
  sum_of_squares += difference * difference;
  if (std::fabs(difference) > max) max = std::fabs(difference);
}

double DifferenceStatistics::mean() const { return count > 0 ? sum / count : 0.0; }

double DifferenceStatistics::rms() const {
  return count > 0 ? std::sqrt(sum_of_squares / count) : 0.0;
}

PointDifferences compute_check_differences(const OwnedList<ObjectPoint>& points) {
  return compute(
      points, PointType::check,
      [](const ObjectPoint& point, std::size_t c) { return point.check[c]; },
      [](double initial, double adjusted) { return initial - adjusted; });
}

PointDifferences compute_control_residuals(const OwnedList<ObjectPoint>& points) {
  return compute(
      points, PointType::control,
      [](const ObjectPoint& point, std::size_t c) {
        return ls_params().is_observed(point.std_devs[c]);
      },
      [](double initial, double adjusted) { return adjusted - initial; });
}

void BundleProject::print_check_points(TextWriter& out) const {
  out << "Check point analysis\n"
         "====================\n\n"
         "Point ID    X-new/m      Y-new/m      Z-new/m        DX/m      DY/m      DZ/m\n\n";
  const PointDifferences differences = compute_check_differences(object_points);
  print_rows(out, differences);
  out << "Summary of check point analysis\n"
         "-------------------------------\n"
         "Empirical accuracy in object space.\n\n"
         "                                  DX/m      DY/m      DZ/m\n\n";
  print_summary(out, differences,
                {"Number of differences       :  ", "Maximum of abs. differences :  ",
                 "Average of differences      :  ", "RMS of differences          :  "});
}

void BundleProject::print_control_residuals(TextWriter& out) const {
  out << "Control point residuals\n"
         "=======================\n\n"
         "Point ID        X/m          Y/m          Z/m      vX/m      vY/m      vZ/m\n\n";
  const PointDifferences residuals = compute_control_residuals(object_points);
  print_rows(out, residuals);
  out << "Std. dev. from control point residuals\n"
         "--------------------------------------\n"
         "                                 vX/m      vY/m      vZ/m\n\n";
  print_summary(out, residuals,
                {"Number of residuals        :  ", "Maximum of abs. residuals  :  ",
                 "Average of residuals       :  ", "RMS of residuals           :  "});
}

}  // namespace vorn
