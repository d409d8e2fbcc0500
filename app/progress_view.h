#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "app/command.h"
#include "driver/run.h"

namespace vorn::app {

// How a command tells of a run on the error stream.
enum class ProgressForm : std::uint8_t {
  automatic,  // a bar on a terminal, lines otherwise
  bar,        // reading and writing as a bar, a line for each iteration
  plain,      // a line for each iteration
  json,       // everything as objects, one a line
  none,       // nothing that went well
};

// Shows a run to a person or a program while it goes on.
class ProgressView {
 public:
  ProgressView() = default;
  ProgressView(const ProgressView&) = delete;
  ProgressView& operator=(const ProgressView&) = delete;
  virtual ~ProgressView() = default;

  virtual void show_stage(RunStage stage) = 0;
  virtual void show_progress(RunStage stage, double fraction) = 0;
  virtual void show_iteration(const IterationStatistics& statistics) = 0;
  // After the last message about the run, with the files that it has written.
  virtual void show_ending(const RunSummary& summary, const std::vector<std::string>& files,
                           ExitStatus status) = 0;
};

// Declares --progress.
void define_progress_option(CLI::App& parser, ProgressForm& form);
// `iterations`: whether lines and bar show them.
[[nodiscard]] std::unique_ptr<ProgressView> make_progress_view(ProgressForm form, bool iterations);

}  // namespace vorn::app
