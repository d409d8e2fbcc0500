#pragma once

#include "app/command.h"
#include "driver/run.h"

namespace vorn::app {

// What commands that adjust a project have in common: the project's control file and how the run is
// told about.
struct ProjectRun {
  RunRequest request;

  // Declares PROJECT.
  void define(CLI::App& parser);
  // Runs the project and closes with a summary on the error stream. A project that would destroy
  // its own input is refused.
  [[nodiscard]] ExitStatus run() const;
};

}  // namespace vorn::app
