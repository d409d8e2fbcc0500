#include "app/held_run.h"

#include <utility>

#include "app/diagnosis_text.h"
#include "driver/run.h"
#include "lsq/ls_params.h"
#include "quality/diagnosis.h"
#include "text/file_system.h"
#include "text/findings.h"
#include "text/text_writer.h"

namespace vorn::app {

std::unique_ptr<HeldRun> run_in_memory(const std::string& path, const AdjustmentSettings& settings,
                                       std::int32_t max_iterations, const QualityRequest& quality,
                                       const std::function<void(BundleProject&)>& prepare) {
  auto held = std::make_unique<HeldRun>();
  ls_params() = LSParams();
  FindingList findings;
  RunRequest request;
  request.path = path;
  request.settings = settings;
  request.outputs = OutputMode::discarded;
  request.diagnose = true;
  request.findings = &findings;
  request.after_reading = [&findings] { return !findings.has_errors(); };
  if (max_iterations >= 0) {
    request.prepare = [max_iterations](BundleProject&, TextWriter&) {
      ls_params().max_iterations = max_iterations;
    };
  }
  request.take = [&](std::unique_ptr<BundleProject> project) {
    if (prepare) prepare(*project);
    held->results = find_quality(*project, quality);
    held->project = std::move(project);
  };
  request.hear_diagnosis = [](const Diagnosis& diagnosis) {
    print_findings(error_output(), diagnosis);
  };
  const std::string directory = current_directory();
  run_project(request);
  change_directory(directory);
  standard_output().flush();
  TextWriter& err = error_output();
  for (const Finding& finding : findings.findings()) {
    if (finding.severity() == Severity::error) print_finding(err, finding);
  }
  if (held->project && held->results.has_figures) {
    if (max_iterations != 0 && held->results.status != RunStatus::converged) {
      err << "vorn: not converged: " << path << '\n';
    }
    return held;
  }
  err << "vorn: there are no results of " << path << ": "
      << (held->project ? held->results.message : std::string("vorn adjust and its report say why"))
      << '\n';
  return nullptr;
}

}  // namespace vorn::app
