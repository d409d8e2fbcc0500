// The Gauss-Newton iterations, their statistics and what follows from the last one.

#include <cmath>
#include <string>
#include <string_view>

#include "base/cpu_clock.h"
#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/damped_iteration.h"
#include "lsq/stages/iteration_report.h"
#include "lsq/stages/normal_equations.h"
#include "lsq/stages/statistics.h"
#include "sensors/point_share.h"

namespace vorn {
namespace {

constexpr NumberFormat kCpuTime = fixed(2);
constexpr NumberFormat kApv = scientific(1, 6);
constexpr NumberFormat kDumped = scientific(12);

// Builds the normal equations at the current approximations. 1 or -1.
int set_up(BundleProject& project, TextWriter& report, std::int32_t& observations) {
  project.solution.zero();
  const int formed =
      form_normal_equations(project, project.settings.derivatives(), project.observations,
                            project.normal, project.rhs, project.lPl, observations);
  if (!holds_for_all(formed == 1)) {
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
  project.failed_unknown = code > 0 ? code - 1 : -1;
  if (code != 0) {
    // A solver that shares its work with other processes may not know the row.
    if (code > 0) {
      standard_output() << "ATTENTION: BMatrix is >>> not <<< positive definite at row/column "
                        << code - 1 << '\n';
    }
    report << "*** ERROR: Solving of normal equations failed.\n";
    return -1;
  }
  seconds = clock.seconds();
  double explained = 0.0;
  for (std::int32_t i = 0; i < project.solution.size(); ++i) {
    explained += project.solution[i] * project.rhs[i];
  }
  project.vtpv = in_total(project.lPl - explained);
  return 1;
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

// Looks for the culprit, for whoever watches, when numbers have ceased to be finite. A pivot that
// is not a number fails, too.
void note_non_finite(BundleProject& project, std::int32_t iteration, bool solved) {
  if (!project.on_iteration || project.non_finite.iteration != 0) return;
  if (solved && std::isfinite(project.lPl) && std::isfinite(project.vtpv)) return;
  const NonFiniteValue found = find_non_finite(project, iteration);
  if (!found.image.empty() || solved || !std::isfinite(project.lPl)) project.non_finite = found;
}

// One Gauss-Newton step. 1 or -1.
int run_iteration(BundleProject& project, TextWriter& report, IterationStatistics& statistics) {
  const CpuClock clock;
  print_iteration_heading(statistics.number, report);
  std::int32_t observations = 0;
  if (set_up(project, report, observations) != 1) return -1;
  const int solved = solve(project, report, statistics.solution_cpu_seconds);
  note_non_finite(project, statistics.number, solved == 1);
  if (solved != 1) return -1;
  list_all_corrections(project, report);
  find_changes(project.unknowns, project.solution, statistics);
  print_mean_changes(statistics, report);
  if (!find_statistics(project, observations, statistics)) {
    report << "*** ERROR: Negative redundancy.\n";
    return -1;
  }
  print_statistics(statistics, report);
  apply_corrections(project);
  find_open_parameter(project.unknowns, project.solution, statistics);
  if (!project.on_iteration) print_open_parameter(statistics);
  statistics.cpu_seconds = clock.seconds();
  print_cpu_time(statistics, report);
  return 1;
}

void write_vector(TextWriter& out, const Vector& v) {
  out << v.size() << '\n';
  for (std::int32_t i = 0; i < v.size(); ++i) out << kDumped(v[i]) << '\n';
}

// Writes one file of the normal equations unless its name is "none".
template <class Write>
void write_file(OutputFiles& files, const std::string& name, std::string_view failure,
                Write write) {
  if (name == "none" || files.mode() == OutputMode::discarded) return;
  TextWriter& out = files.open(name);
  if (!out.is_open()) {
    standard_output() << failure;
    return;
  }
  write(out);
  files.finish(out);
}

void write_normal_equations(const BundleProject& project, OutputFiles& files) {
  const Options& options = project.options;
  write_file(files, options.structure_file,
             "ERROR: Cannot write structure of normal matrix file.\n",
             [&](TextWriter& out) { write_sparsity_pbm(out, project.normal); });
  write_file(files, options.matrix_file, "ERROR: Cannot write normal matrix file.\n",
             [&](TextWriter& out) { project.solver->write_matrix(out, project.normal); });
  write_file(files, options.rhs_file, "ERROR: Cannot write right side vector file.\n",
             [&](TextWriter& out) { write_vector(out, project.rhs); });
  write_file(files, options.solution_file, "ERROR: Cannot write  solution vector file.\n",
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
  PointShare* const share = point_share();
  const std::vector<UnknownValue> large =
      share == nullptr ? values_above(project.rhs, limit) : share->values_above(project.rhs, limit);
  for (const UnknownValue& element : large) {
    report << "A'Pv[" << element.unknown << "] is large: " << kApv(element.value) << '\n';
  }
  report << "\nNumber of A'Pv-values > limit : " << static_cast<std::uint64_t>(large.size())
         << "\n\n";
}

// Gauss-Newton steps until all corrections are within their limits. 1 or -1.
int iterate_undamped(BundleProject& project, TextWriter& report) {
  const std::int32_t max_iterations = ls_params().max_iterations;
  ObserverAnswer answer = ObserverAnswer::go_on;
  while (project.num_iterations < max_iterations && !project.converged &&
         answer == ObserverAnswer::go_on) {
    IterationStatistics& statistics = project.iterations.emplace_back();
    statistics.number = ++project.num_iterations;
    if (run_iteration(project, report, statistics) != 1) return -1;
    project.converged = holds_for_all(statistics.open_object == nullptr);
    if (project.on_iteration) answer = project.on_iteration(statistics);
  }
  if (answer == ObserverAnswer::stop) {
    report << "*** ERROR: The iterations were stopped.\n";
    return -1;
  }
  project.ended_from_outside = answer == ObserverAnswer::finish && !project.converged;
  if (project.converged) project.ending = IterationEnding::limits;
  return 1;
}

void print_ending(const BundleProject& project, double seconds, TextWriter& report) {
  // Without damping, a convergence in the very last iteration counts as reaching the maximum, too.
  const bool ended = project.settings.damped ? project.converged
                                             : project.num_iterations < ls_params().max_iterations;
  if (project.ended_from_outside) {
    report << "\n*** WARNING: The iterations were ended from outside before they converged.\n";
  } else {
    report << (ended ? "\n*** Iteration criterion limit has been reached.\n"
                     : "\n*** WARNING: Maximum number of iterations has been reached.\n");
  }
  report << "\nNumber of iterations: " << project.num_iterations << '\n'
         << "Total cpu time for iterations : " << kCpuTime(seconds) << " s\n\n";
}

}  // namespace

int BundleProject::iterate(TextWriter& report) {
  const CpuClock clock;
  report << "*** Start iteration loop\n\n";
  converged = false;
  ending = IterationEnding::max_iterations;
  num_iterations = 0;
  iterations.clear();
  held_points.clear();
  if ((settings.damped ? iterate_damped(*this, report) : iterate_undamped(*this, report)) != 1) {
    return -1;
  }
  print_ending(*this, clock.seconds(), report);
  OutputFiles own_files;
  write_normal_equations(*this, outputs != nullptr ? *outputs : own_files);
  check_apv(*this, report);
  return 1;
}

}  // namespace vorn
