#include "app/project_run.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "app/diagnosis_text.h"
#include "app/ending.h"
#include "app/quality_document.h"
#include "app/signals.h"
#include "app/threads/threads.h"
#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "lsq/linalg/kernels.h"
#include "lsq/stages/iteration_report.h"
#include "quality/diagnosis.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

void print_obstacle(const Obstacle& obstacle) {
  error_output() << "vorn: " << text_of(obstacle.kind) << ": " << obstacle.file << '\n';
}

void print_diagnosis(const RunSummary& summary, const RunRequest& request,
                     const Diagnosis& diagnosis) {
  TextWriter& err = error_output();
  if (summary.result == 1 && diagnosis.failed_at.object_type.empty() && !summary.ending.converged) {
    err << "vorn: the observations hardly determine this network:\n";
  } else if (summary.result == 1) {
    err << (request.settings.damped
                ? "\nvorn: the observations do not determine this network: the minimum is one of "
                  "many, and its\n  figures of quality do not exist:\n"
                : "\nvorn: rounding alone made this adjustment possible; its results are worth "
                  "nothing:\n");
  }
  print_findings(err, diagnosis);
}

void print_interruption(const RunSummary& summary) {
  error_output() << "vorn: interrupted after " << summary.iterations
                 << (summary.iterations == 1 ? " iteration" : " iterations")
                 << ", which the results are of\n";
}

// Shows a run, and lets it finish with what there is when somebody interrupts its iterations.
class Watcher final : public RunObserver {
 public:
  Watcher(ProgressView& view, bool verbose) : view_(view), verbose_(verbose) {}
  ~Watcher() override { let_interrupts_wait(false); }

  ObserverAnswer on_stage(RunStage stage) override {
    let_interrupts_wait(stage == RunStage::iterations);
    view_.show_stage(stage);
    return answer();
  }
  ObserverAnswer on_progress(RunStage stage, double fraction) override {
    view_.show_progress(stage, fraction);
    return answer();
  }
  ObserverAnswer on_iteration(const IterationStatistics& statistics) override {
    if (verbose_) print_open_parameter(statistics);
    view_.show_iteration(statistics);
    if (answer() == ObserverAnswer::go_on && statistics.number == kRunLimits.iterations) {
      error_output() << "vorn: no more than " << statistics.number << " iterations are run\n";
    }
    return answer();
  }

 private:
  static ObserverAnswer answer() {
    return interrupt_waits() ? ObserverAnswer::finish : ObserverAnswer::go_on;
  }

  ProgressView& view_;
  bool verbose_;
};

// The system takes back the memory of a process faster than a project can be taken apart: the one
// that was adjusted last lives until then.
void keep_until_the_end(std::unique_ptr<BundleProject> project) {
  static auto* const kept = new std::unique_ptr<BundleProject>;
  *kept = std::move(project);
}

void force_kernel(const std::string& name) {
  if (!name.empty() && use_kernels(name)) return;
  throw CLI::ValidationError("--kernel", "no kernel '" + name + "' for this processor");
}

void force_threads(std::size_t count) {
  if (count < 1 || count > kMostThreads) {
    throw CLI::ValidationError("--threads",
                               "expected a number from 1 to " + std::to_string(kMostThreads));
  }
  if (count > 1 && !has_threads()) {
    throw CLI::ValidationError("--threads", "this command was built without threads (OpenMP)");
  }
  use_threads(count);
}

}  // namespace

void ProjectRun::define(CLI::App& parser) {
  parser.add_option("PROJECT", request.path, "control file of the project")->required();
  parser.add_flag("-q,--quiet", quiet_, "tell only what goes wrong");
  define_progress_option(parser, progress_);
  parser.add_flag("-v,--verbose", verbose_,
                  "standard output carries all messages of the library, also of the convergence "
                  "test");
  parser.add_flag("--lenient", lenient_,
                  "adjust also when words of the data files cannot be what they should");
  parser.add_flag("--allow-outside", allow_outside_,
                  "files of the normal equations may stand outside the project's directory and "
                  "replace other files");
  parser
      .add_option_function<std::size_t>(
          "--threads", force_threads,
          "so many threads work at the adjustment, by default one for each core that the process "
          "may use; the results are the same")
      ->type_name("N");
  parser
      .add_option_function<std::string>(
          "--kernel", force_kernel,
          "for support: the arithmetic of the normal equations is that of baseline, avx2 or avx512")
      ->type_name("NAME");
}

bool ProjectRun::judge_findings() {
  // Nobody asks any more where what was read had stood.
  findings_.places = {};
  standard_output().flush();
  for (const Finding& finding : findings_.findings()) {
    if (!quiet_ || finding.severity() == Severity::error) print_finding(error_output(), finding);
  }
  if (!findings_.has_errors() || lenient_) return true;
  error_output() << "vorn: the data files have errors; --lenient adjusts in spite of them\n";
  return false;
}

bool ProjectRun::may_run() const {
  const std::vector<Obstacle> obstacles = find_obstacles(
      {request.path, request.with_cameras, allow_outside_, more_inputs, more_outputs});
  for (const Obstacle& obstacle : obstacles) print_obstacle(obstacle);
  return obstacles.empty();
}

ExitStatus ProjectRun::run() {
  if (progress_ == ProgressForm::automatic && quiet_) progress_ = ProgressForm::none;
  if (progress_ == ProgressForm::json && !has_json()) {
    error_output() << "vorn: --progress json: this command was built without RapidJSON\n";
    return kWrongUsage;
  }
  const std::unique_ptr<ProgressView> view = make_progress_view(progress_, !verbose_ && !quiet_);
  ExitStatus status = may_run() ? adjust(*view) : kFailed;
  if (finish) status = finish(status);
  view->show_ending(summary, files_of(summary, request), status);
  return status;
}

ExitStatus ProjectRun::adjust(ProgressView& view) {
  request.outputs = OutputMode::replaced;
  request.diagnose = true;
  request.findings = &findings_;
  request.after_reading = [this] { return judge_findings(); };
  request.limits = kRunLimits;
  Watcher watcher(view, verbose_);
  request.observer = &watcher;
  if (!request.take) request.take = keep_until_the_end;
  std::optional<Diagnosis> diagnosis;
  request.hear_diagnosis = [&, also = request.hear_diagnosis](const Diagnosis& heard) {
    diagnosis = heard;
    if (also) also(heard);
  };
  summary = run_project(request);
  request.hear_diagnosis = nullptr;
  request.observer = nullptr;
  // The library's own text comes first, whatever the streams are connected to.
  standard_output().flush();
  print_ending(summary, request, quiet_ || progress_ == ProgressForm::json);
  if (diagnosis) print_diagnosis(summary, request, *diagnosis);
  const ExitStatus status = status_of(summary);
  if (status != kNotConverged || !interrupt_waits()) return status;
  print_interruption(summary);
  return kInterrupted;
}

}  // namespace vorn::app
