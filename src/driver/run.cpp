#include "driver/run.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>

#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "driver/run_watch.h"
#include "lsq/ls_params.h"
#include "quality/diagnosis.h"
#include "sensors/point_share.h"
#include "text/file_system.h"

namespace vorn {
namespace {

// The output streams of a run, in the order in which they are opened.
struct OutputStreams {
  OutputStreams(OutputFiles& outputs, const OutputNames& names)
      : report(outputs.open(names.out, names.failed)),
        ext(outputs.open(names.ext)),
        ocs(outputs.open(names.ocs)),
        res(outputs.open(names.res)),
        apset(outputs.open(names.apset)),
        gcpres(outputs.open(names.gcpres)),
        chp(outputs.open(names.chp)) {}

  TextWriter& report;
  TextWriter& ext;
  TextWriter& ocs;
  TextWriter& res;
  TextWriter& apset;
  TextWriter& gcpres;
  TextWriter& chp;
};

// Tells of the sections that are written, by their lines.
class SectionProgress {
 public:
  SectionProgress(const BundleProject& project, RunWatch& watch) : watch_(watch) {
    if (!watch.is_watched()) return;
    for (const BundleImage& image : project.images) image_points_ += image.count_points();
    total_ =
        2.0 * (image_points_ + project.object_points.count() + project.image_geometries.count());
  }
  [[nodiscard]] double image_points() const { return image_points_; }
  // False when the run is to stop.
  [[nodiscard]] bool add(double lines) {
    written_ += lines;
    return watch_.progress(total_ > 0.0 ? written_ / total_ : 0.0);
  }

 private:
  RunWatch& watch_;
  double image_points_ = 0.0;
  double total_ = 0.0;
  double written_ = 0.0;
};

// The final sections, unless the run is stopped in between. AP-set blocks go to the "apset" file
// and AP-set records to the report. `cam` is null unless the camera file is asked for.
void write_sections(const BundleProject& project, const OutputStreams& streams, TextWriter* cam,
                    SectionProgress& progress) {
  TextWriter& report = streams.report;
  project.print_cameras(report);
  project.print_ap_sets(streams.apset);
  project.write_ap_sets(report);
  project.write_exterior_orientations(streams.ext);
  project.print_exterior_orientations(report);
  if (!progress.add(2.0 * project.image_geometries.count())) return;
  project.write_object_points(streams.ocs);
  if (!progress.add(project.object_points.count())) return;
  project.print_object_points(report);
  if (!progress.add(project.object_points.count())) return;
  project.write_residuals(streams.res, report);
  if (!progress.add(2.0 * progress.image_points())) return;
  if (cam != nullptr) {
    project.write_cameras(*cam);
    project.print_cameras(*cam);
  }
  project.print_control_residuals(streams.gcpres);
  project.print_control_residuals(report);
  project.print_check_points(streams.chp);
  project.print_check_points(report);
}

// Wall-clock time since the last call [s].
class StopWatch {
 public:
  double lap() {
    const auto now = std::chrono::steady_clock::now();
    const std::chrono::duration<double> elapsed = now - start_;
    start_ = now;
    return elapsed.count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// What all parts of a run share.
struct Run {
  const RunRequest& request;
  RunSummary& summary;
  OutputFiles& outputs;
  RunWatch& watch;
};

// Reads all data files. 1, or -1.
int read_project(const Run& run, BundleProject& project, TokenReader& control_file,
                 const std::string& directory, TextWriter& report) {
  if (!run.watch.enter(RunStage::reading)) return -1;
  const int read = project.read_control_file(control_file);
  change_directory(directory);
  if (run.watch.stopped()) return -1;
  const bool goes_on = !run.request.after_reading || run.request.after_reading();
  if (read != 1) return -1;
  if (!goes_on) report << "ERROR: There are errors in the data files.\n";
  return goes_on ? 1 : -1;
}

int initialise(const Run& run, BundleProject& project, TextWriter& report) {
  project.options.print_options(report);
  ls_params().print(report);
  if (run.request.prepare) run.request.prepare(project, report);
  if (project.options.print_image_coords) project.print_image_coords(report);
  if (!run.watch.enter(RunStage::initialisation)) return -1;
  return project.initialise(report);
}

int iterate(const Run& run, BundleProject& project, TextWriter& report) {
  return run.watch.enter(RunStage::iterations) ? project.iterate(report) : -1;
}

// Everything between reading the control file and the last iteration. 1, or -1 at the first
// failure.
int adjust(const Run& run, BundleProject& project, TokenReader& control_file,
           const std::string& directory, TextWriter& report) {
  RunTimes& times = run.summary.times;
  StopWatch clock;
  const int read = read_project(run, project, control_file, directory, report);
  times.read = clock.lap();
  if (read != 1) return -1;
  const int initialised = initialise(run, project, report);
  times.initialise = clock.lap();
  if (initialised != 1) return -1;
  const int iterated = iterate(run, project, report);
  times.iterate = clock.lap();
  return iterated;
}

// Without one, what failed is not the network: words, or memory.
bool has_iterated(const BundleProject& project) { return project.num_iterations > 0; }

// A completed run is diagnosed when its final normal equations are singular, or but for rounding,
// and when its iterations ended before convergence.
// What it takes in memory may be lacking: results do not depend on it.
void tell_diagnosis(const RunRequest& request, BundleProject& project, bool completed) {
  if (!request.hear_diagnosis) return;
  project.solver.reset();
  try {
    const Diagnosis diagnosis =
        completed ? diagnose_completed(project) : diagnose_initially(project);
    if (!completed || diagnosis.condemns_results()) request.hear_diagnosis(diagnosis);
  } catch (const std::bad_alloc&) {
    error_output() << "There is not enough memory to look into the network.\n";
  }
}

// Replaces earlier results and shows the adjusted project to whoever asked.
void complete(const Run& run, BundleProject& project) {
  const RunRequest& request = run.request;
  RunSummary& summary = run.summary;
  summary.result = 1;
  summary.sigma0 = project.sigma0;
  summary.redundancy = project.redundancy;
  summary.iterations = project.num_iterations;
  const bool doubtful = is_doubtful(project) || (request.diagnose && !summary.ending.converged);
  if (request.write_more) {
    const std::size_t num_results = run.outputs.paths().size();
    request.write_more(project, run.outputs);
    const std::vector<std::string> paths = run.outputs.paths();
    summary.more_files.assign(paths.begin() + static_cast<std::ptrdiff_t>(num_results),
                              paths.end());
  }
  if (!run.outputs.commit()) return;
  // A report of an earlier failure would speak of a project that is no more.
  if (request.outputs == OutputMode::replaced) std::remove(summary.files.failed.c_str());
  if (request.inspect) request.inspect(project);
  if (doubtful) tell_diagnosis(request, project, true);
}

// Writes the results of an adjusted project. What has become of it stands in the summary.
void write_results(const Run& run, BundleProject& project, const OutputStreams& streams) {
  StopWatch clock;
  const RunRequest& request = run.request;
  RunSummary& summary = run.summary;
  if (!run.watch.enter(RunStage::writing)) return;
  TextWriter* const cam = request.with_cameras ? &run.outputs.open(summary.files.cam) : nullptr;
  if (PointShare* const share = point_share()) share->gather_points(project);
  SectionProgress progress(project, run.watch);
  write_sections(project, streams, cam, progress);
  if (run.watch.stopped()) return;
  if (request.diagnose) summary.ending = ending_of_completed(project);
  if (summary.ending.non_finite.iteration == 0) complete(run, project);
  summary.times.write = clock.lap();
}

// What is to be known of a run that failed.
void look_into_failure(const Run& run, BundleProject& project, TextWriter& report) {
  run.summary.iterations = project.num_iterations;
  run.summary.stopped = run.watch.stopped();
  if (run.summary.stopped) {
    report << "*** ERROR: The run was stopped from outside.\n";
    return;
  }
  if (run.request.diagnose) run.summary.ending = ending_of_failed(project);
  if (has_iterated(project)) tell_diagnosis(run.request, project, false);
}

// Gives the project away, without those who are gone after the run.
void hand_over(std::unique_ptr<BundleProject> project, const RunRequest& request) {
  project->outputs = nullptr;
  project->on_reading = nullptr;
  project->on_iteration = nullptr;
  project->findings = nullptr;
  request.take(std::move(project));
}

// Reads, adjusts and reports.
void run_stages(const RunRequest& request, const PathParts& parts, const std::string& control_path,
                OutputFiles& outputs, RunSummary& summary) {
  const OutputStreams streams(outputs, summary.files);
  summary.started = true;
  // A host's run goes on without a file; results that are replaced as a whole cannot be any more.
  if (request.outputs == OutputMode::replaced && !outputs.failures().empty()) return;
  FileText control_file;
  if (!control_file.load(control_path)) return;

  RunWatch watch(request.observer, request.limits, request.diagnose);
  const Run run{request, summary, outputs, watch};
  auto owned = std::make_unique<BundleProject>();
  BundleProject& project = *owned;
  project.outputs = &outputs;
  watch.attach(project, streams.report);
  project.settings = request.settings;
  project.findings = request.findings;
  const std::string directory = parts.drive + parts.directory;
  const std::string name = control_path.substr(directory.size());
  TokenReader control_tokens(control_file.view(), name, project.findings);
  if (adjust(run, project, control_tokens, directory, streams.report) == 1) {
    write_results(run, project, streams);
  }
  if (summary.result != 1 && summary.ending.non_finite.iteration == 0) {
    look_into_failure(run, project, streams.report);
  }
  const bool complete = summary.result == 1 && outputs.failures().empty();
  if (complete && request.take) hand_over(std::move(owned), request);
}

void print_failures(const std::vector<OutputFailure>& failures) {
  for (const OutputFailure& failure : failures) {
    error_output() << "ERROR: Cannot write file: " << failure.path << ": " << failure.reason
                   << '\n';
  }
}

}  // namespace

RunSummary run_project(const RunRequest& request) {
  RunSummary summary;
  const FileKind kind = file_kind(request.path);
  if (request.path.empty() || kind == FileKind::missing || kind == FileKind::directory) {
    return summary;
  }

  const std::string full_path = absolute_path(request.path);
  const PathParts parts = split_path(full_path);
  summary.files = output_names(parts);
  if (is_own_output(full_path, summary.files, request.with_cameras)) return summary;
  change_directory(parts.drive + parts.directory);

  OutputFiles outputs(request.outputs);
  run_stages(request, parts, full_path, outputs, summary);
  // What a failed run leaves behind; nothing is left to do after a completed one.
  outputs.abandon();
  summary.failures = outputs.failures();
  if (request.outputs == OutputMode::in_place) print_failures(summary.failures);
  return summary;
}

void print_out_of_memory() {
  standard_output().write_through("ERROR: There is not enough memory for this project.\n");
}

}  // namespace vorn
