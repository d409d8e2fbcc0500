#include "driver/run.h"

#include <chrono>
#include <cstdio>

#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "lsq/ls_params.h"
#include "quality/diagnosis.h"
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

// The final sections. AP-set blocks go to the "apset" file and AP-set records to the report. `cam`
// is null unless the camera file is asked for.
void write_sections(const BundleProject& project, const OutputStreams& streams, TextWriter* cam) {
  TextWriter& report = streams.report;
  project.print_cameras(report);
  project.print_ap_sets(streams.apset);
  project.write_ap_sets(report);
  project.write_exterior_orientations(streams.ext);
  project.print_exterior_orientations(report);
  project.write_object_points(streams.ocs);
  project.print_object_points(report);
  project.write_residuals(streams.res);
  project.print_residuals(report);
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

// Everything between reading the control file and the last section. 1, or -1 at the first failure.
int adjust(const RunRequest& request, BundleProject& project, TokenReader& control_file,
           const std::string& directory, TextWriter& report, RunTimes& times) {
  StopWatch watch;
  const int read = project.read_control_file(control_file);
  change_directory(directory);
  times.read = watch.lap();
  const bool goes_on = !request.after_reading || request.after_reading();
  if (read != 1) return -1;
  if (!goes_on) {
    report << "ERROR: There are errors in the data files.\n";
    return -1;
  }
  project.options.print_options(report);
  ls_params().print(report);
  if (request.prepare) request.prepare(project, report);
  if (project.options.print_image_coords) project.print_image_coords(report);
  if (project.initialise(report) != 1) return -1;
  times.initialise = watch.lap();
  const int iterated = project.iterate(report);
  times.iterate = watch.lap();
  return iterated;
}

bool has_normal_equations(const BundleProject& project) { return project.normal.size() > 0; }

// A completed run is diagnosed only when nothing but rounding made it possible.
void tell_diagnosis(const RunRequest& request, BundleProject& project, bool completed) {
  if (!request.hear_diagnosis) return;
  restore_initial_values(project);
  const Diagnosis diagnosis = diagnose(project);
  if (!completed || diagnosis.has_errors()) request.hear_diagnosis(diagnosis);
}

// Replaces earlier results and shows the adjusted project to whoever asked.
void complete(const RunRequest& request, BundleProject& project, OutputFiles& outputs,
              RunSummary& summary) {
  summary.result = 1;
  summary.sigma0 = project.sigma0;
  summary.redundancy = project.redundancy;
  summary.iterations = project.num_iterations;
  const bool doubtful = project.failed_unknown >= 0 || is_doubtful(project);
  if (!outputs.commit()) return;
  // A report of an earlier failure would speak of a project that is no more.
  if (request.outputs == OutputMode::replaced) std::remove(summary.files.failed.c_str());
  if (request.inspect) request.inspect(project);
  if (doubtful) tell_diagnosis(request, project, true);
}

// The observer of the request, which also ends iterations that fill the disk.
IterationObserver observer_of(const RunRequest& request, const TextWriter& report) {
  if (request.max_report_bytes == 0) return request.on_iteration;
  return [&request, &report](const IterationStatistics& statistics) {
    const bool too_long = report.size() > request.max_report_bytes;
    if (!request.on_iteration) return too_long ? IterationAnswer::finish : IterationAnswer::go_on;
    const IterationAnswer answer = request.on_iteration(statistics);
    return too_long && answer == IterationAnswer::go_on ? IterationAnswer::finish : answer;
  };
}

// Writes the results of an adjusted project. What has become of it stands in the summary.
void write_results(const RunRequest& request, BundleProject& project, const OutputStreams& streams,
                   OutputFiles& outputs, RunSummary& summary) {
  StopWatch watch;
  TextWriter* const cam = request.with_cameras ? &outputs.open(summary.files.cam) : nullptr;
  write_sections(project, streams, cam);
  if (request.diagnose) summary.ending = ending_of_completed(project);
  if (summary.ending.non_finite.iteration == 0) complete(request, project, outputs, summary);
  summary.times.write = watch.lap();
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

  BundleProject project;
  project.outputs = &outputs;
  project.on_iteration = observer_of(request, streams.report);
  project.settings = request.settings;
  project.findings = request.findings;
  const std::string directory = parts.drive + parts.directory;
  const std::string name = control_path.substr(directory.size());
  TokenReader control_tokens(control_file.view(), name, project.findings);
  if (adjust(request, project, control_tokens, directory, streams.report, summary.times) == 1) {
    write_results(request, project, streams, outputs, summary);
    return;
  }
  if (request.diagnose) summary.ending = ending_of_failed(project);
  summary.iterations = project.num_iterations;
  if (has_normal_equations(project)) tell_diagnosis(request, project, false);
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
  if (request.path.empty() || kind == FileKind::missing || kind == FileKind::directory)
    return summary;

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
