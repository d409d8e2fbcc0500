#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "app/project_run.h"
#include "app/quality_document.h"
#include "driver/run.h"
#include "quality/exclusions.h"
#include "quality/quality.h"
#include "text/findings.h"

namespace vorn::app {

// The options of a command that say what is to be written about the quality of an adjustment.
class QualityOutput {
 public:
  // Declares --quality, --prior, --datum, --suggest, --exclude, --json, --tables and --html.
  void define(CLI::App& parser);
  // Asks for the report page as the only output.
  void ask_for_page(std::string file);
  // Runs the project with this output. A run that failed has a document and a page, too, under
  // names of their own where those of earlier results stand. The exit status of the command: that
  // of the run, unless a list or the document cannot be read or written (the error stream says why)
  // or figures that were asked for do not exist.
  [[nodiscard]] ExitStatus run(ProjectRun& project);

 private:
  // Reads the lists that were named, and hooks the output into a run. False, with the reason on the
  // error stream, when a list cannot be read.
  [[nodiscard]] bool attach(ProjectRun& run);
  // After the run with its exit status; returns that of the command.
  [[nodiscard]] ExitStatus finish(ExitStatus status, const ProjectRun& run);
  [[nodiscard]] bool read_datum();
  [[nodiscard]] bool tell_failure(const ProjectRun& run) const;
  [[nodiscard]] std::string failure_of(const RunSummary& summary) const;
  [[nodiscard]] DocumentFiles document() const;
  [[nodiscard]] DocumentFiles failed_document() const;
  [[nodiscard]] std::string failed_page() const;
  [[nodiscard]] std::vector<std::string> paths() const;  // all that may be written
  void write(BundleProject& project, OutputFiles& outputs);
  void write_texts(const QualityResults& results, const Diagnosis& diagnosis,
                   OutputFiles& outputs) const;
  void write_page_of(const QualityResults& results, const Diagnosis* diagnosis,
                     const std::vector<Removal>& removed, const std::string& file,
                     OutputFiles& outputs) const;
  [[nodiscard]] bool needs_figures() const { return quality_ || !page_.empty(); }

  std::string suggestions_;  // files, as seen from where the command was started
  std::string exclusion_file_;
  std::vector<Exclusion> exclusions_;
  std::string datum_ = "given";
  std::string datum_file_;
  std::string base_;          // path of the control file without extension
  std::string control_file_;  // its name
  bool lacks_figures_ = false;
  bool quality_ = false;
  bool json_ = false;
  QualityRequest quality_request_;
  TableForm table_form_ = TableForm::by_size;
  std::string page_;                    // file of the report page; empty: none
  FindingList checked_;                 // of the files, for the page
  std::optional<Diagnosis> diagnosis_;  // of a run that failed
};

}  // namespace vorn::app
