#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "app/quality_document.h"
#include "driver/run.h"
#include "quality/quality.h"

namespace vorn::app {

// The options of a command that say what is to be written about the quality of an adjustment.
class QualityOutput {
 public:
  // Declares --quality, --prior, --json and --tables.
  void define(CLI::App& parser);
  // Hooks the output into a run.
  void attach(RunRequest& request);
  // Names the files that could not be written on the error stream. True when there are none.
  [[nodiscard]] bool report_failures() const;

 private:
  void write(BundleProject& project, const std::string& control_file);
  template <class Print>
  void write_text(const std::string& path, Print print);

  bool quality_ = false;
  bool json_ = false;
  QualityRequest quality_request_;
  TableForm table_form_ = TableForm::by_size;
  std::vector<std::string> failures_;
};

}  // namespace vorn::app
