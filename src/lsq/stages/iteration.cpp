// The Gauss-Newton iterations, their statistics and what follows from the last one.

#include <cmath>
#include <string>
#include <string_view>

#include "base/cpu_clock.h"
#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/normal_equations.h"
#include "lsq/stages/statistics.h"

namespace vorn {
namespace {

constexpr NumberFormat kCpuTime = fixed(2);
constexpr NumberFormat kIterationNumber = general(3);
constexpr NumberFormat kVtpv = scientific(2);
constexpr NumberFormat kSigma0 = fixed(2);
constexpr NumberFormat kChange = scientific(3, 10);
constexpr NumberFormat kApv = scientific(1, 6);
constexpr NumberFormat kDumped = scientific(12);
constexpr double kMicrometresPerMetre = 1e6;

// Builds the normal equations at the current approximations. 1 or -1.
int set_up(BundleProject& project, TextWriter& report, std::int32_t& observations) {
  project.solution.zero();
  if (form_normal_equations(project, project.settings.derivatives(), project.observations,
                            project.normal, project.rhs, project.lPl, observations) != 1) {
    report << "ERROR: Setup of normal equations failed.\n";
    return -1;
  }
  return 1;
}

// Solves for the corrections and computes v'Pv. 1 or -1.
int solve(BundleProject& project, TextWriter& report, double& seconds) {
  const CpuClock clock;
  const int code =
      project.solver->solve(project.normal, project.rhs, project.solution, project.markers);
  if (code != 0) {
    standard_output() << "ATTENTION: BMatrix is >>> not <<< positive definite at row/column "
                      << code - 1 << '\n';
    report << "*** ERROR: Solving of normal equations failed.\n";
    return -1;
  }
  seconds = clock.seconds();
  double explained = 0.0;
  for (std::int32_t i = 0; i < project.solution.size(); ++i) {
    explained += project.solution[i] * project.rhs[i];
  }
  project.vtpv = project.lPl - explained;
  return 1;
}

template <class T>
void list_corrections(TextWriter& report, std::string_view heading, std::string_view underline,
                      const OwnedList<T>& objects, const Vector& corrections) {
  report << heading << '\n' << underline << "\n\n";
  for (const T& object : objects) object.print_changes(report, corrections);
  report << '\n';
}

// Lists the corrections of the groups that the options ask for.
void list_all_corrections(const BundleProject& project, TextWriter& report) {
  const Options& options = project.options;
  const Vector& x = project.solution;
  if (options.print_object_coords) {
    list_corrections(report, "Object point coordinates", "------------------------",
                     project.object_points, x);
  }
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

// Redundancy and sigma 0 of the iteration. False when the redundancy is negative.
bool find_statistics(BundleProject& project, std::int32_t observations,
                     IterationStatistics& statistics) {
  statistics.counts = redundancy_of(project.unknowns, observations);
  statistics.vtpv = project.vtpv;
  project.redundancy = statistics.counts.value();
  if (project.redundancy < 0) return false;
  project.sigma0 = project.redundancy > 0 ? std::sqrt(project.vtpv / project.redundancy) : 0.0;
  statistics.sigma0 = project.sigma0;
  return true;
}

void apply_corrections(BundleProject& project) {
  project.unknowns.apply_corrections(project.solution);
  for (ImageGeometry& geometry : project.image_geometries) geometry.update();
}

// Looks for the first parameter that is beyond its limit.
void check_convergence(const BundleProject& project, IterationStatistics& statistics) {
  const AdjObjectList& unknowns = project.unknowns;
  for (std::int32_t i = 0; i < unknowns.num_objects(); ++i) {
    const std::int32_t failed = unknowns[i].check_convergence(project.solution);
    if (failed == -1) continue;
    statistics.open_object = &unknowns[i];
    statistics.open_param = failed;
    return;
  }
}

void print_open_parameter(const AdjObject& object, std::int32_t param) {
  standard_output() << "Convergence check failed at\n"
                    << "  ID        : " << object.id << '\n'
                    << "  Type      : " << object.get_type_name() << '\n'
                    << "  Parameter : " << object.get_param_name(param) << "\n\n";
}

// One Gauss-Newton step. 1 or -1.
int run_iteration(BundleProject& project, TextWriter& report, IterationStatistics& statistics) {
  const CpuClock clock;
  report << "Iteration number " << kIterationNumber(statistics.number)
         << "\n--------------------\n\n";
  std::int32_t observations = 0;
  if (set_up(project, report, observations) != 1) return -1;
  if (solve(project, report, statistics.solution_cpu_seconds) != 1) return -1;
  list_all_corrections(project, report);
  find_changes(project.unknowns, project.solution, statistics);
  print_mean_changes(statistics, report);
  if (!find_statistics(project, observations, statistics)) {
    report << "*** ERROR: Negative redundancy.\n";
    return -1;
  }
  print_statistics(statistics, report);
  apply_corrections(project);
  check_convergence(project, statistics);
  if (statistics.open_object != nullptr) {
    print_open_parameter(*statistics.open_object, statistics.open_param);
  }
  statistics.cpu_seconds = clock.seconds();
  report << "Elapsed cpu time per iteration: " << kCpuTime(statistics.cpu_seconds)
         << " s, solution only: " << kCpuTime(statistics.solution_cpu_seconds) << " s\n\n";
  return 1;
}

void write_vector(TextWriter& out, const Vector& v) {
  out << v.size() << '\n';
  for (std::int32_t i = 0; i < v.size(); ++i) out << kDumped(v[i]) << '\n';
}

// Writes one file of the normal equations unless its name is "none".
template <class Write>
void write_file(const std::string& name, std::string_view failure, Write write) {
  if (name == "none") return;
  TextWriter out;
  if (!out.open(name)) {
    standard_output() << failure;
    return;
  }
  write(out);
}

void write_normal_equations(const BundleProject& project) {
  const Options& options = project.options;
  write_file(options.structure_file, "ERROR: Cannot write structure of normal matrix file.\n",
             [&](TextWriter& out) { write_sparsity_pbm(out, project.normal); });
  write_file(options.matrix_file, "ERROR: Cannot write normal matrix file.\n",
             [&](TextWriter& out) { project.solver->write_matrix(out, project.normal); });
  write_file(options.rhs_file, "ERROR: Cannot write right side vector file.\n",
             [&](TextWriter& out) { write_vector(out, project.rhs); });
  write_file(options.solution_file, "ERROR: Cannot write  solution vector file.\n",
             [&](TextWriter& out) { write_vector(out, project.solution); });
}

// A'Pv = 0 holds at the minimum, and the right-hand side is A'Pl of the last iteration. The
// comparison is signed: large negative values are not reported.
void check_apv(const BundleProject& project, TextWriter& report) {
  const double limit = ls_params().apv_limit;
  report << "Check adjustment on A'Pv = 0\n"
            "----------------------------\n"
            "A'Pv limit:  "
         << kApv(limit) << '\n';
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < project.rhs.size(); ++i) {
    if (!(project.rhs[i] > limit)) continue;
    report << "A'Pv[" << i << "] is large: " << kApv(project.rhs[i]) << '\n';
    ++count;
  }
  report << "\nNumber of A'Pv-values > limit : " << count << "\n\n";
}

}  // namespace

int BundleProject::iterate(TextWriter& report) {
  const CpuClock clock;
  report << "*** Start iteration loop\n\n";
  const std::int32_t max_iterations = ls_params().max_iterations;
  converged = false;
  num_iterations = 0;
  iterations.clear();
  while (num_iterations < max_iterations && !converged) {
    IterationStatistics& statistics = iterations.emplace_back();
    statistics.number = ++num_iterations;
    if (run_iteration(*this, report, statistics) != 1) return -1;
    converged = statistics.open_object == nullptr;
  }
  // A convergence in the very last iteration counts as reaching the maximum, too.
  report << (num_iterations < max_iterations
                 ? "\n*** Iteration criterion limit has been reached.\n"
                 : "\n*** WARNING: Maximum number of iterations has been reached.\n")
         << "\nNumber of iterations: " << num_iterations << '\n'
         << "Total cpu time for iterations : " << kCpuTime(clock.seconds()) << " s\n\n";
  write_normal_equations(*this);
  check_apv(*this, report);
  return 1;
}

}  // namespace vorn
