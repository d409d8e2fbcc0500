#include "lsq/stages/iteration_report.h"

#include <string_view>

#include "driver/bundle_project.h"
#include "sensors/point_share.h"

namespace vorn {
namespace {

constexpr NumberFormat kIterationNumber = general(3);
constexpr NumberFormat kCpuTime = fixed(2);
constexpr NumberFormat kVtpv = scientific(2);
constexpr NumberFormat kSigma0 = fixed(2);
constexpr NumberFormat kChange = scientific(3, 10);
constexpr double kMicrometresPerMetre = 1e6;

void print_heading(TextWriter& report, std::string_view heading, std::string_view underline) {
  report << heading << '\n' << underline << "\n\n";
}

void list_corrections(TextWriter& report, const OwnedList<ObjectPoint>& points,
                      const Vector& corrections) {
  print_heading(report, "Object point coordinates", "------------------------");
  PointLines lines(report);
  for (std::int32_t slot = 0; slot < points.num_slots(); ++slot) {
    if (points[slot] == nullptr) continue;
    lines.begin(slot);
    points[slot]->print_changes(report, corrections);
  }
  lines.finish();
  report << '\n';
}

template <class T>
void list_corrections(TextWriter& report, std::string_view heading, std::string_view underline,
                      const OwnedList<T>& objects, const Vector& corrections) {
  print_heading(report, heading, underline);
  for (const T& object : objects) object.print_changes(report, corrections);
  report << '\n';
}

void print_mean_change(TextWriter& report, std::string_view label, const GroupChange& change,
                       std::string_view unit) {
  report << label;
  // Negated, so that a mean that is not a number counts as none.
  if (!(change.mean() > 0.0)) {
    report << "    ---   \n";
  } else {
    report << kChange(change.mean()) << unit;
  }
}

}  // namespace

void print_iteration_heading(std::int32_t number, TextWriter& report) {
  report << "Iteration number " << kIterationNumber(number) << "\n--------------------\n\n";
}

void list_all_corrections(const BundleProject& project, TextWriter& report) {
  const Options& options = project.options;
  const Vector& x = project.solution;
  if (options.print_object_coords) list_corrections(report, project.object_points, x);
  if (options.print_exterior_orientations) {
    list_corrections(report, "Exterior orientations", "---------------------",
                     project.image_geometries, x);
  }
  if (options.print_ap_sets && project.ap_sets.count() > 0) {
    list_corrections(report, "Additional parameters", "---------------------", project.ap_sets, x);
  }
  if (options.print_pos_corrections && project.pos_corrections.count() > 0) {
    list_corrections(report, "Position corrections", "--------------------",
                     project.pos_corrections, x);
  }
  if (options.print_att_corrections && project.att_corrections.count() > 0) {
    list_corrections(report, "Attitude corrections", "--------------------",
                     project.att_corrections, x);
  }
}

void print_mean_changes(const IterationStatistics& statistics, TextWriter& report) {
  report << "Average change of unknown parameters\n";
  print_mean_change(report, " - object point coords.             :  ", statistics.points, " m\n");
  print_mean_change(report, " - perspective centre coords.       :  ", statistics.centres, " m\n");
  print_mean_change(report, " - rotation parameters              :  ", statistics.rotations, "\n");
  print_mean_change(report, " - geometry parameters              :  ", statistics.geometries, "\n");
}

void print_statistics(const IterationStatistics& statistics, TextWriter& report) {
  const Redundancy& counts = statistics.counts;
  report << "Number of observations  :  " << counts.observations << '\n'
         << "Number of unknowns      :  " << counts.unknowns << " (thereof: " << counts.observed
         << " obs. " << counts.eliminated << " elim.)\n"
         << "Number of constraints   :  " << counts.constraints << '\n'
         << "Redundancy              :  " << counts.value() << '\n'
         << "vtpv                    :  " << kVtpv(statistics.vtpv) << '\n'
         << "Sigma 0 a posteriori    :  ";
  if (statistics.sigma0 == 0.0) {
    report << "undefined, no redundancy!\n";
  } else {
    report << kSigma0(statistics.sigma0 * kMicrometresPerMetre) << " um\n";
  }
  report << '\n';
  report.flush();
}

void print_cpu_time(const IterationStatistics& statistics, TextWriter& report) {
  report << "Elapsed cpu time per iteration: " << kCpuTime(statistics.cpu_seconds)
         << " s, solution only: " << kCpuTime(statistics.solution_cpu_seconds) << " s\n\n";
}

void print_open_parameter(const IterationStatistics& statistics) {
  if (statistics.open_object == nullptr) return;
  const AdjObject& object = *statistics.open_object;
  standard_output() << "Convergence check failed at\n"
                    << "  ID        : " << object.id << '\n'
                    << "  Type      : " << object.get_type_name() << '\n'
                    << "  Parameter : " << object.get_param_name(statistics.open_param) << "\n\n";
}

}  // namespace vorn
