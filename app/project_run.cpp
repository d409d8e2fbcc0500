#include "app/project_run.h"

#include <optional>
#include <string_view>

#include "app/diagnosis_text.h"
#include "driver/output_guard.h"
#include "quality/diagnosis.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

void print_clash(const InputClash& clash) {
  constexpr std::string_view kSays[] = {
      "no such control file",
      "a directory is no control file",
      "this is no control file: it names no data file by a keyword",
      "the control file has the name of one of its own outputs",
      "a data file has the name of one of the outputs and would be overwritten",
  };
  error_output() << "vorn: " << kSays[static_cast<std::size_t>(clash.kind)] << ": " << clash.file
                 << '\n';
}

void print_summary(const RunSummary& summary, bool with_cameras) {
  constexpr NumberFormat kSigma0 = fixed(3);
  TextWriter& err = error_output();
  if (summary.result != 1) {
    err << "vorn: the adjustment failed; the messages above and the report say why: "
        << summary.files.out << '\n';
    return;
  }
  err << "\nAdjustment completed\n  sigma 0     ";
  if (summary.sigma0 == 0.0) {
    err << "undefined, no redundancy\n";
  } else {
    err << kSigma0(summary.sigma0 * 1e6) << " um\n";
  }
  err << "  redundancy  " << summary.redundancy << "\n  iterations  " << summary.iterations
      << "\n  files       ";
  std::string_view separator;
  for (const std::string& name : summary.files.opened(with_cameras)) {
    err << separator << name << '\n';
    separator = "              ";
  }
}

void print_diagnosis(const RunSummary& summary, const Diagnosis& diagnosis) {
  TextWriter& err = error_output();
  if (summary.result == 1) {
    err << "\nvorn: rounding alone made this adjustment possible; its results are worth nothing:\n";
  }
  print_findings(err, diagnosis);
}

}  // namespace

void ProjectRun::define(CLI::App& parser) {
  parser.add_option("PROJECT", request.path, "control file of the project")->required();
}

ExitStatus ProjectRun::run() const {
  const std::vector<InputClash> clashes = find_input_clashes(request.path, request.with_cameras);
  for (const InputClash& clash : clashes) print_clash(clash);
  if (!clashes.empty()) return kFailed;
  std::optional<Diagnosis> diagnosis;
  RunRequest diagnosed = request;
  diagnosed.hear_diagnosis = [&](const Diagnosis& heard) { diagnosis = heard; };
  const RunSummary summary = run_project(diagnosed);
  // The library's own text comes first, whatever the streams are connected to.
  flush_console();
  print_summary(summary, request.with_cameras);
  if (diagnosis) print_diagnosis(summary, *diagnosis);
  return summary.result == 1 ? kSuccess : kFailed;
}

}  // namespace vorn::app
