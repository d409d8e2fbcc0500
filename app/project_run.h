#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/command.h"
#include "app/progress_view.h"
#include "driver/run.h"
#include "text/findings.h"

namespace vorn::app {

// What commands that adjust a project have in common: its control file, what they refuse, and how
// they tell about the run.
class ProjectRun {
 public:
  // Declares PROJECT and the common options.
  void define(CLI::App& parser);
  // Runs the project. Results are replaced as a whole; a failed run leaves the earlier ones as they
  // were. The error stream tells about each iteration and the ending.
  [[nodiscard]] ExitStatus run();

  RunRequest request;
  // Where given, makes the exit status of the command, which is told and returned, of that of the
  // run.
  std::function<ExitStatus(ExitStatus)> finish = nullptr;
  // Files that a command reads or writes beside those of the project.
  std::vector<std::string> more_inputs;
  std::vector<std::string> more_outputs;
  // What the run came to; as it is made when none was tried.
  RunSummary summary;

 private:
  bool may_run() const;
  [[nodiscard]] ExitStatus adjust(ProgressView& view);
  // Prints what is wrong with the data files; false when the run is to end there.
  bool judge_findings();

  ProgressForm progress_ = ProgressForm::automatic;
  bool quiet_ = false;
  bool verbose_ = false;
  bool allow_outside_ = false;
  bool lenient_ = false;
  FindingList findings_;
};

}  // namespace vorn::app
