#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "app/quality_document.h"
#include "driver/run.h"
#include "quality/exclusions.h"
#include "quality/quality.h"

namespace vorn::app {

// The options of a command that say what is to be written about the quality of an adjustment.
class QualityOutput {
 public:
  // Declares --quality, --prior, --datum, --suggest, --exclude, --json, --tables and --html.
  void define(CLI::App& parser);
  // Asks for the report page as the only output.
  void ask_for_page(std::string file);
  // Reads the lists that were named, and hooks the output into a run. False, with the reason on the
  // error stream, when a list cannot be read.
  [[nodiscard]] bool attach(RunRequest& request);
  // Called after the run: a run that failed has a document, too; names the files that could not be
  // written on the error stream. True when there are none.
  [[nodiscard]] bool finish(bool completed);

 private:
  [[nodiscard]] bool read_datum();
  void write(BundleProject& project);
  void write_texts(const QualityResults& results);
  void write_failure(const std::string& message, const Diagnosis* diagnosis);
  void write_document(const QualityResults& results, const Diagnosis* diagnosis);
  [[nodiscard]] bool needs_figures() const { return quality_ || !page_.empty(); }
  template <class Print>
  void write_text(const std::string& path, Print print);

  std::string suggestions_;  // files, as seen from where the command was started
  std::string exclusion_file_;
  std::vector<Exclusion> exclusions_;
  std::string datum_ = "given";
  std::string datum_file_;
  std::string base_;          // path of the control file without extension
  std::string control_file_;  // its name
  bool has_document_ = false;
  bool quality_ = false;
  bool json_ = false;
  QualityRequest quality_request_;
  TableForm table_form_ = TableForm::by_size;
  std::string page_;  // file of the report page; empty: none
  std::vector<std::string> failures_;
};

}  // namespace vorn::app
