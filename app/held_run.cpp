#include "app/held_run.h"

#include <string_view>
#include <utility>
#include <vector>

#include "app/diagnosis_text.h"
#include "driver/output_guard.h"
#include "driver/run.h"
#include "lsq/ls_params.h"
#include "quality/diagnosis.h"
#include "text/file_system.h"
#include "text/findings.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

void print_absence(const std::string& path, std::string_view reason) {
  error_output() << "vorn: there are no results of " << path << ": " << reason << '\n';
}

bool may_be_read(const std::string& path) {
  GuardRequest guard{path};
  guard.writes_files = false;
  const std::vector<Obstacle> obstacles = find_obstacles(guard);
  for (const Obstacle& obstacle : obstacles) print_absence(path, text_of(obstacle.kind));
  return obstacles.empty();
}

}  // namespace

std::unique_ptr<HeldRun> run_in_memory(const std::string& path, const AdjustmentSettings& settings,
                                       std::int32_t max_iterations, const QualityRequest& quality,
                                       const std::function<void(BundleProject&)>& before_figures) {
  if (!may_be_read(path)) return nullptr;
  auto held = std::make_unique<HeldRun>();
  ls_params() = LSParams();
  FindingList findings;
  RunRequest request;
  request.path = path;
  request.settings = settings;
  request.outputs = OutputMode::discarded;
  request.limits = kRunLimits;
  request.diagnose = true;
  request.findings = &findings;
  request.after_reading = [&findings] { return !findings.has_errors(); };
  if (max_iterations >= 0) {
    request.prepare = [max_iterations](BundleProject&, TextWriter&) {
      ls_params().max_iterations = max_iterations;
    };
  }
  request.take = [&](std::unique_ptr<BundleProject> project) {
    if (before_figures) before_figures(*project);
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
  print_absence(path, held->project ? std::string_view(held->results.message)
                                    : "vorn adjust and its report say why");
  return nullptr;
}

}  // namespace vorn::app
