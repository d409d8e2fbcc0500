#include "driver/run.h"

#include <chrono>

#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "lsq/ls_params.h"
#include "quality/diagnosis.h"
#include "text/file_system.h"

namespace vorn {
namespace {

// The output streams of a run, in the order in which they are opened.
struct OutputStreams {
  TextWriter report;
  TextWriter ext;
  TextWriter ocs;
  TextWriter res;
  TextWriter apset;
  TextWriter gcpres;
  TextWriter chp;

  // A file that cannot be opened discards what is written to it.
  void open_results(const OutputNames& names) {
    ext.open(names.ext);
    ocs.open(names.ocs);
    res.open(names.res);
    apset.open(names.apset);
    gcpres.open(names.gcpres);
    chp.open(names.chp);
  }
  // In reverse order of opening.
  void close() {
    for (TextWriter* stream : {&chp, &gcpres, &apset, &res, &ocs, &ext, &report}) stream->close();
  }
};

void write_camera_file(const BundleProject& project, const std::string& name) {
  TextWriter cam;
  cam.open(name);
  project.write_cameras(cam);
  project.print_cameras(cam);
}

// The final sections. AP-set blocks go to the "apset" file and AP-set records to the report.
void write_sections(const BundleProject& project, OutputStreams& streams, const OutputNames& names,
                    bool with_cameras) {
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
  if (with_cameras) write_camera_file(project, names.cam);
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
  if (read != 1) return -1;
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
  const std::string directory = parts.drive + parts.directory;
  change_directory(directory);

  OutputStreams streams;
  streams.report.open(summary.files.out);
  FileText control_file;
  const bool readable = control_file.load(full_path);
  streams.open_results(summary.files);
  summary.started = true;
  if (!readable) return summary;

  BundleProject project;
  project.settings = request.settings;
  project.findings = request.findings;
  const std::string name = full_path.substr(directory.size());
  TokenReader control_tokens(control_file.view(), name, project.findings);
  if (adjust(request, project, control_tokens, directory, streams.report, summary.times) != 1) {
    streams.close();
    if (has_normal_equations(project)) tell_diagnosis(request, project, false);
    return summary;
  }
  StopWatch watch;
  write_sections(project, streams, summary.files, request.with_cameras);
  streams.close();
  summary.times.write = watch.lap();
  summary.result = 1;
  summary.sigma0 = project.sigma0;
  summary.redundancy = project.redundancy;
  summary.iterations = project.num_iterations;
  const bool doubtful = is_doubtful(project);
  if (request.inspect) request.inspect(project);
  if (doubtful) tell_diagnosis(request, project, true);
  return summary;
}

void print_out_of_memory() {
  standard_output().write_through("ERROR: There is not enough memory for this project.\n");
}

}  // namespace vorn
