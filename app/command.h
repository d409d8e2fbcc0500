#pragma once

#include <CLI/CLI.hpp>
#include <memory>

namespace vorn::app {

// How the command ends.
enum ExitStatus : int {
  kSuccess = 0,       // for a run: completed and converged
  kFailed = 1,        // no results, or not all of them could be written
  kWrongUsage = 2,    // nothing was tried; of `diff`: one of the projects has no results
  kNotConverged = 3,  // completed: results are there, but the iterations ended too early, or the
                      // figures of quality that were asked for do not exist
  kInterrupted = 4,   // completed early, at an interrupt: results of the iterations there were
};

// One command of `vorn`. Each stands in a file of its own; `main.cpp` has the table.
class Command {
 public:
  Command() = default;
  virtual ~Command() = default;
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Declares arguments and options, which are stored in the command when they are parsed. The
  // command outlives `parser`.
  virtual void define(CLI::App& parser) = 0;
  // Called once, after parsing.
  [[nodiscard]] virtual ExitStatus run() = 0;
};

std::unique_ptr<Command> make_adjust_command();
std::unique_ptr<Command> make_grid_command();
std::unique_ptr<Command> make_list_command();
std::unique_ptr<Command> make_report_command();
std::unique_ptr<Command> make_import_command();
std::unique_ptr<Command> make_export_command();
std::unique_ptr<Command> make_check_command();
std::unique_ptr<Command> make_new_command();
std::unique_ptr<Command> make_diff_command();
std::unique_ptr<Command> make_simulate_command();

}  // namespace vorn::app
