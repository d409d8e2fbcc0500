#include "adjust.h"

#include <cmath>
#include <exception>
#include <optional>
#include <utility>

#include "app/threads/threads.h"
#include "conversion.h"
#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "driver/paths.h"
#include "lsq/named_losses.h"
#include "quality/diagnosis.h"
#include "quality/exclusions.h"
#include "quality/missing_names.h"
#include "quality/quality.h"
#include "results.h"
#include "run_scope.h"

namespace vorn::python {
namespace {

RobustLoss loss_of(const std::string& name) {
  if (name.empty()) return RobustLoss::none;
  if (const auto loss = loss_named(name)) return *loss;
  throw CallError("no robust loss '" + name + "'; there are huber, cauchy, geman-mcclure");
}

// Shows a run to Python, and ends it when Python says so, raises or was interrupted.
class Observer final : public RunObserver {
 public:
  explicit Observer(const py::object& progress) : progress_(progress) {}

  ObserverAnswer on_stage(RunStage stage) override {
    return tell([&](py::dict& event) { describe(event, stage, 0.0); });
  }
  ObserverAnswer on_progress(RunStage stage, double fraction) override {
    return tell([&](py::dict& event) { describe(event, stage, fraction); });
  }
  ObserverAnswer on_iteration(const IterationStatistics& statistics) override {
    return tell([&](py::dict& event) {
      describe(event, RunStage::iterations, 0.0);
      event["iteration"] = dict_of(statistics);
    });
  }
  // Raises what the callback raised.
  void raise() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  static void describe(py::dict& event, RunStage stage, double fraction) {
    event["stage"] = text_of(name_of(stage));
    event["fraction"] = fraction;
    event["iteration"] = py::none();
  }

  template <class Fill>
  ObserverAnswer tell(Fill fill) {
    const py::gil_scoped_acquire lock;
    try {
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      if (progress_.is_none()) return ObserverAnswer::go_on;
      py::dict event;
      fill(event);
      const py::object answer = progress_(event);
      return answer.is(py::bool_(false)) ? ObserverAnswer::finish : ObserverAnswer::go_on;
    } catch (const py::error_already_set&) {
      error_ = std::current_exception();
    }
    return ObserverAnswer::stop;
  }

  const py::object& progress_;
  std::exception_ptr error_;
};

std::vector<Exclusion> exclusions_of(const std::string& file) {
  std::vector<Exclusion> exclusions;
  if (file.empty()) return exclusions;
  std::string error;
  if (load_exclusions(file, exclusions, error)) return exclusions;
  throw CallError(file + ": " + error);
}

// A run and what is kept of it. All members that hold Python objects are touched under the
// interpreter's lock only.
class AdjustRun {
 public:
  AdjustRun(const std::string& path, const AdjustOptions& options, const py::object& progress,
            const std::function<void(BundleProject&)>& inspect)
      : path_(path), options_(options), observer_(progress), inspect_(inspect) {}

  py::dict run() {
    RunSummary summary;
    std::string messages;
    {
      const py::gil_scoped_release release;
      RunScope scope;
      adjust(summary);
      messages = scope.messages();
    }
    observer_.raise();
    return outcome(summary, messages);
  }

 private:
  void adjust(RunSummary& summary) {
    const std::vector<Exclusion> exclusions = exclusions_of(options_.exclusions);
    obstacles_ = find_obstacles({path_, options_.with_cameras, options_.allow_outside});
    if (!obstacles_.empty()) return;
    app::use_threads(options_.threads > 0 ? options_.threads : app::available_cores());
    RunRequest request;
    request.path = path_;
    request.with_cameras = options_.with_cameras;
    request.settings = options_.settings;
    request.outputs = OutputMode::replaced;
    request.limits = kRunLimits;
    request.diagnose = true;
    request.findings = &findings_;
    request.observer = &observer_;
    request.after_reading = [this] { return options_.lenient || !findings_.has_errors(); };
    if (!exclusions.empty()) {
      request.prepare = [&](BundleProject& project, TextWriter& report) {
        tell_missing_observations(options_.exclusions, exclusions.size(),
                                  apply_exclusions(exclusions, project, report));
      };
    }
    request.inspect = [this](BundleProject& project) { keep(project); };
    request.hear_diagnosis = [this](const Diagnosis& diagnosis) { keep(diagnosis); };
    summary = run_project(request);
  }

  void keep(BundleProject& project) {
    if (inspect_) return inspect_(project);
    QualityRequest request;
    request.figures = options_.figures;
    request.prior = options_.prior;
    request.inner_datum = options_.inner_datum;
    request.datum_points = options_.datum_points;
    tell_missing_points("datum_points", options_.datum_points, project);
    std::optional<Diagnosis> diagnosis;
    QualityResults results = find_quality(project, request, diagnosis);
    const PathParts parts = split_path(path_);
    results.control_file = path_.substr(parts.drive.size() + parts.directory.size());
    py::dict found = results_of(project, results, diagnosis ? &*diagnosis : nullptr);
    const py::gil_scoped_acquire lock;
    results_ = std::move(found);
  }

  void keep(const Diagnosis& diagnosis) {
    py::str document = document_of_failure(diagnosis);
    const py::gil_scoped_acquire lock;
    diagnosis_ = std::move(document);
  }

  py::dict outcome(const RunSummary& summary, const std::string& messages) {
    py::dict result = results_;
    result["completed"] = summary.result == 1 && summary.failures.empty();
    result["converged"] = summary.ending.converged;
    result["messages"] = text_of(messages);
    result["findings"] = list_of(findings_);
    result["failure_document"] = diagnosis_;
    py::list obstacles;
    for (const Obstacle& obstacle : obstacles_) {
      obstacles.append(text_of(std::string(text_of(obstacle.kind)) + ": " + obstacle.file));
    }
    result["obstacles"] = obstacles;
    py::list failures;
    for (const OutputFailure& failure : summary.failures) {
      failures.append(text_of(failure.path + ": " + failure.reason));
    }
    result["failures"] = failures;
    py::list lost;
    for (const LostObject& object : summary.ending.lost) {
      lost.append(text_of(object.kind + ' ' + object.id));
    }
    result["lost"] = lost;
    describe_files(result, summary);
    return result;
  }

  void describe_files(py::dict& result, const RunSummary& summary) const {
    py::list files;
    if (summary.started) {
      for (const std::string& file : summary.files.opened(options_.with_cameras)) {
        files.append(text_of(file));
      }
    }
    result["files"] = files;
    result["failed_report"] = text_of(summary.files.failed);
    const RunTimes& times = summary.times;
    py::dict seconds;
    seconds["read"] = times.read;
    seconds["initialise"] = times.initialise;
    seconds["iterate"] = times.iterate;
    seconds["write"] = times.write;
    result["seconds"] = seconds;
  }

  const std::string& path_;
  const AdjustOptions& options_;
  Observer observer_;
  const std::function<void(BundleProject&)>& inspect_;
  FindingList findings_;
  std::vector<Obstacle> obstacles_;
  py::dict results_;
  py::object diagnosis_ = py::none();
};

}  // namespace

AdjustOptions options_of(const py::dict& from) {
  AdjustOptions options;
  AdjustmentSettings& settings = options.settings;
  take(from, "rigorous", settings.rigorous);
  take(from, "damped", settings.damped);
  std::string loss;
  take(from, "robust", loss);
  set_robust(settings, loss_of(loss));
  take(from, "robust_scale", settings.robust_scale);
  take(from, "keep_robust", settings.keep_robust);
  if (!(settings.robust_scale > 0.0) || !std::isfinite(settings.robust_scale)) {
    throw CallError("robust_scale must be positive");
  }
  take(from, "quality", options.figures);
  take(from, "prior", options.prior);
  take(from, "inner_datum", options.inner_datum);
  take(from, "datum_points", options.datum_points);
  take(from, "exclude", options.exclusions);
  take(from, "cameras", options.with_cameras);
  take(from, "lenient", options.lenient);
  take(from, "allow_outside", options.allow_outside);
  take(from, "threads", options.threads);
  return options;
}

py::dict adjust(const std::string& path, const AdjustOptions& options, const py::object& progress,
                const std::function<void(BundleProject&)>& inspect) {
  return AdjustRun(path, options, progress, inspect).run();
}

}  // namespace vorn::python
