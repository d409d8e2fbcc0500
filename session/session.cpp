#include "session.h"

#include <algorithm>
#include <optional>

#include "base/floating_point_state.h"
#include "check/check.h"
#include "driver/output_guard.h"
#include "driver/run_permit.h"
#include "lsq/linalg/kernels.h"
#include "lsq/ls_params.h"
#include "lsq/named_losses.h"
#include "quality/quality.h"
#include "session_tables.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::session {
namespace {

// Hands a run's events to a function in C.
class Relay final : public RunObserver {
 public:
  Relay(vorn_observer observer, void* user) : observer_(observer), user_(user) {}

  ObserverAnswer on_stage(RunStage stage) override {
    stage_ = stage;
    return observer_ != nullptr ? tell(event(VORN_EVENT_STAGE)) : ObserverAnswer::go_on;
  }
  ObserverAnswer on_progress(RunStage, double fraction) override {
    if (observer_ == nullptr) return ObserverAnswer::go_on;
    vorn_event told = event(VORN_EVENT_PROGRESS);
    told.fraction = fraction;
    return tell(told);
  }
  ObserverAnswer on_iteration(const IterationStatistics& statistics) override {
    if (observer_ == nullptr) return ObserverAnswer::go_on;
    vorn_event told = event(VORN_EVENT_ITERATION);
    told.iteration = statistics.number;
    told.redundancy = statistics.counts.value();
    told.sigma0 = statistics.sigma0;
    told.vtpv = statistics.vtpv;
    told.converged = statistics.open_object == nullptr ? 1 : 0;
    if (statistics.open_object == nullptr) return tell(told);
    const NamedParameter moving = open_parameter(statistics);
    told.moving_type = moving.kind.c_str();
    told.moving_id = moving.id.c_str();
    told.moving_parameter = moving.name.c_str();
    return tell(told);
  }
  // The stage that the run has come to.
  [[nodiscard]] RunStage stage() const { return stage_; }

 private:
  [[nodiscard]] vorn_event event(std::int32_t kind) const {
    vorn_event told{};
    told.kind = kind;
    told.stage = static_cast<std::int32_t>(stage_);
    told.moving_type = told.moving_id = told.moving_parameter = "";
    return told;
  }
  ObserverAnswer tell(const vorn_event& told) const {
    switch (observer_(&told, user_)) {
      case VORN_FINISH:
        return ObserverAnswer::finish;
      case VORN_STOP:
        return ObserverAnswer::stop;
      default:
        return ObserverAnswer::go_on;
    }
  }

  vorn_observer observer_;
  void* user_;
  RunStage stage_ = RunStage::reading;
};

// Sets a flag for as long as it lives.
class Flag {
 public:
  explicit Flag(bool& flag) : flag_(flag) { flag_ = true; }
  ~Flag() { flag_ = false; }
  Flag(const Flag&) = delete;
  Flag& operator=(const Flag&) = delete;

 private:
  bool& flag_;
};

// Takes the text of a cell.
class TextSink final : public CellSink {
 public:
  explicit TextSink(std::vector<std::string>& texts) : texts_(texts) {}
  void number(double) override {}
  void short_number(double) override {}
  void count(std::int64_t) override {}
  void flag(bool) override {}
  void text(std::string_view value) override { texts_.emplace_back(value); }
  void undefined() override { texts_.emplace_back(); }

 private:
  std::vector<std::string>& texts_;
};

}  // namespace

// What a run or check finds of the process and leaves behind: current directory, parameters,
// kernels, console, arithmetic.
class Session::Environment {
 public:
  explicit Environment(Session& session)
      : directory_(current_directory()), flag_(session.running_) {
    ls_params() = LSParams();
    static_cast<void>(use_kernels(session.settings.kernel));
    // Nothing throws from here on: no destructor would end the capture.
    standard_output().capture(&session.messages);
    error_output().capture(&session.messages);
  }
  ~Environment() {
    try {
      flush_console();
    } catch (...) {
      // There was no memory for the messages.
    }
    standard_output().capture(nullptr);
    error_output().capture(nullptr);
    change_directory(directory_);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  FloatingPointState arithmetic_;
  std::string directory_;
  Flag flag_;
};

// What is heard of a run while it goes on.
struct Session::Outcome {
  RunSummary summary;
  RunStage stage = RunStage::reading;
  FindingList findings;
  bool refused = false;  // for errors in the data files
  std::optional<Diagnosis> diagnosis;
  bool has_figures = true;
};

std::int32_t Session::fail(std::int32_t status, std::string reason) {
  error = std::move(reason);
  return status;
}

void Session::discard() {
  drop_results();
  messages.clear();
  findings.clear();
}

void Session::drop_results() {
  texts_.clear();
  tables_.clear();
  results_.reset();
  project_.reset();
}

const ResultTable* Session::find_table(std::string_view name) const {
  const auto found = std::find_if(tables_.begin(), tables_.end(),
                                  [name](const auto& table) { return table->name == name; });
  return found == tables_.end() ? nullptr : found->get();
}

const std::vector<std::string>& Session::texts(const ResultTable& table, std::size_t column) {
  const auto key = std::pair(&table, column);
  const auto known = texts_.find(key);
  if (known != texts_.end()) return known->second;
  std::vector<std::string> texts;
  texts.reserve(table.num_rows());
  TextSink sink(texts);
  for (std::size_t row = 0; row < table.num_rows(); ++row) table.put(row, column, sink);
  return texts_.emplace(key, std::move(texts)).first->second;
}

void Session::show(const FindingList& list) {
  for (Finding& finding : list.findings()) {
    ShownFinding& shown = findings.emplace_back();
    shown.severity = name_of(finding.severity());
    shown.code = name_of(finding.code);
    shown.place = {std::move(finding.file), finding.line, finding.column};
    shown.object = std::move(finding.object);
    shown.message = std::move(finding.message);
    shown.help = std::move(finding.help);
  }
}

void Session::show(const Diagnosis& diagnosis) {
  for (const DiagnosisFinding& finding : diagnosis.findings) {
    ShownFinding& shown = findings.emplace_back();
    const bool note = finding.severity == FindingSeverity::info;
    shown.severity = note ? "note" : severity_name(finding.severity);
    shown.code = finding.code;
    if (!finding.objects.empty()) {
      const DiagnosedItem& item = finding.objects.front();
      shown.object = {item.object_type, printable(item.object_id), {}, item.parameter};
    }
    shown.message = printable(finding.message);
    shown.help = printable(finding.remedy);
  }
}

RunRequest Session::request(Outcome& outcome) {
  RunRequest request;
  request.path = path_;
  request.with_cameras = settings.files && settings.cameras;
  request.settings = settings.adjustment;
  set_robust(request.settings, settings.adjustment.robust_loss);
  request.findings = &outcome.findings;
  request.after_reading = [&outcome, this] {
    outcome.refused = outcome.findings.has_errors() && !settings.lenient;
    return !outcome.refused;
  };
  if (settings.max_iterations >= 0) {
    request.prepare = [this](BundleProject&, TextWriter& report) {
      ls_params().max_iterations = settings.max_iterations;
      report << "Maximum number of iterations, set from outside: " << settings.max_iterations
             << "\n\n";
    };
  }
  request.outputs = settings.files ? OutputMode::replaced : OutputMode::discarded;
  request.diagnose = true;
  // How many iterations there may be is the host's to say.
  request.limits.report_bytes = kRunLimits.report_bytes;
  request.take = [&outcome, this](std::unique_ptr<BundleProject> project) {
    take(std::move(project), outcome);
  };
  request.hear_diagnosis = [&outcome](const Diagnosis& heard) { outcome.diagnosis = heard; };
  return request;
}

void Session::take(std::unique_ptr<BundleProject> project, Outcome& outcome) {
  QualityRequest wanted;
  wanted.figures = settings.quality;
  wanted.prior = settings.prior;
  wanted.inner_datum = settings.inner_datum;
  std::optional<Diagnosis> diagnosis;
  auto results = std::make_unique<QualityResults>(find_quality(*project, wanted, diagnosis));
  if (results->has_figures) {
    outcome.diagnosis = std::move(diagnosis);
  } else if (settings.quality) {
    outcome.has_figures = false;
    error = results->message;
  }
  // The equations have served.
  project->solver.reset();
  project->normal.resize(0);
  tables_ = tables_of_session(*project, *results);
  project_ = std::move(project);
  results_ = std::move(results);
}

std::int32_t Session::judge(const Outcome& outcome) {
  const RunSummary& summary = outcome.summary;
  if (!summary.failures.empty()) {
    const OutputFailure& first = summary.failures.front();
    return fail(VORN_ERROR_FILE, "cannot write " + printable(first.path) + ": " + first.reason);
  }
  if (!summary.started) {
    return fail(VORN_ERROR_FILE, "the control file cannot be read: " + printable(path_));
  }
  if (summary.stopped) return fail(VORN_ERROR_STOPPED, "the observer stopped the run");
  if (outcome.refused) {
    return fail(VORN_ERROR_DATA,
                "the data files have errors; the setting lenient adjusts in spite of them");
  }
  if (summary.result != 1) {
    if (outcome.stage == RunStage::reading) {
      return fail(VORN_ERROR_DATA, "the data files cannot be read: see findings and messages");
    }
    std::string reason = "the adjustment failed: see findings and messages";
    if (summary.ending.non_finite.iteration != 0) {
      reason = "the numbers cease to be finite in iteration " +
               std::to_string(summary.ending.non_finite.iteration);
    } else if (outcome.diagnosis && outcome.diagnosis->has_errors()) {
      reason = printable(outcome.diagnosis->findings.front().message);
    }
    return fail(VORN_ERROR_FAILED, std::move(reason));
  }
  if (!outcome.has_figures) return VORN_NO_FIGURES;
  return project_->converged ? VORN_OK : VORN_NOT_CONVERGED;
}

std::int32_t Session::run_project_here() {
  GuardRequest guard{path_, settings.cameras, settings.allow_outside};
  guard.writes_files = settings.files;
  for (const Obstacle& obstacle : find_obstacles(guard)) {
    return fail(VORN_ERROR_FILE,
                std::string(text_of(obstacle.kind)) + ": " + printable(obstacle.file));
  }
  Outcome outcome;
  RunRequest wanted = request(outcome);
  Relay relay(observer, user);
  wanted.observer = &relay;
  outcome.summary = run_project(wanted);
  outcome.stage = relay.stage();
  show(outcome.findings);
  if (outcome.diagnosis) show(*outcome.diagnosis);
  return judge(outcome);
}

std::int32_t Session::run() {
  const RunPermit permit;
  if (!permit.granted()) return fail(VORN_ERROR_BUSY, "a run or check is going on in this process");
  discard();
  const Environment environment(*this);
  try {
    const std::int32_t status = run_project_here();
    if (status < 0) drop_results();
    return status;
  } catch (...) {
    drop_results();
    throw;
  }
}

std::int32_t Session::check() {
  const RunPermit permit;
  if (!permit.granted()) return fail(VORN_ERROR_BUSY, "a run or check is going on in this process");
  discard();
  const Environment environment(*this);
  FindingList list;
  if (!check_project(path_, list)) {
    return fail(VORN_ERROR_FILE, "the control file cannot be read: " + printable(path_));
  }
  show(list);
  return VORN_OK;
}

}  // namespace vorn::session
