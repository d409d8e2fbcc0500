// The command `vorn`: the table of its commands, and what holds for all of them.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "app/command.h"
#include "app/ending.h"
#include "app/packed/packed.h"
#include "app/separators/separators.h"
#include "app/signals.h"
#include "app/threads/threads.h"
#include "driver/run.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

struct CommandRow {
  std::string_view name;
  std::string_view description;
  std::unique_ptr<Command> (*make)();
};

constexpr CommandRow kCommands[] = {
    {"adjust", "Adjust a project; write its report and result files", make_adjust_command},
    {"grid", "Adjust a project; print the effects of its additional-parameter sets on a grid",
     make_grid_command},
    {"list", "Adjust a project; list all unknowns with their changes and significance",
     make_list_command},
    {"check", "Look a project through without adjusting it", make_check_command},
    {"report", "Adjust a project; write a page with charts and tables of everything",
     make_report_command},
    {"new", "Make a commented project of a camera and tables of measurements", make_new_command},
    {"diff", "Adjust two projects; compare their results in units of their sigmas",
     make_diff_command},
    {"simulate", "Tell what precision a project can expect; write copies with simulated noise",
     make_simulate_command},
    {"import", "Make a project of a reconstruction of another program", make_import_command},
    {"export", "Adjust a project; write it in the format of another program", make_export_command},
};

// Ends the program with its status before the destructors of other people's libraries run: where
// address space is short, a BLAS that GDAL brings for a GeoPackage waits in its own for ever. A
// runtime that gives up by exit() comes this way, too. The sanitizers look for leaks after this
// place.
void end_before_libraries() {
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  on_exit(
      [](int status, void*) {
        std::fflush(nullptr);
        std::_Exit(status);
      },
      nullptr);
#endif
}

bool is_command(std::string_view word) {
  return std::any_of(std::begin(kCommands), std::end(kCommands),
                     [word](const CommandRow& row) { return row.name == word; });
}

// A misspelt command names no file and looks like none.
bool looks_like_file(const std::string& word) {
  return word.find_first_of("./\\") != std::string::npos || file_kind(word) != FileKind::missing;
}

// Makes `vorn adjust x.ctl` of `vorn x.ctl`. False for a word that is no command and no file.
bool complete_command(std::vector<std::string>& arguments) {
  const auto word = std::find_if(arguments.begin(), arguments.end(), [](const std::string& text) {
    return !text.empty() && text.front() != '-';
  });
  if (word == arguments.end() || is_command(*word)) return true;
  // Options in front of everything may have a value; the project comes behind it.
  const bool options_first = word != arguments.begin();
  if (!looks_like_file(*word) &&
      !(options_first && std::any_of(word, arguments.end(), looks_like_file))) {
    error_output() << "vorn: no such command: " << *word << "; vorn --help lists them\n";
    return false;
  }
  arguments.insert(arguments.begin(), "adjust");
  return true;
}

ExitStatus run_command(std::vector<std::string> arguments) {
  CLI::App parser("Bundle adjustment of photogrammetric projects.", "vorn");
  parser.set_version_flag("--version", "vorn " VORN_VERSION);
  parser.require_subcommand(1);
  parser.footer(
      "vorn PROJECT adjusts, too. Exit status: 0 converged, 1 failed, 2 wrong usage, 3 finished "
      "without convergence or without the figures of quality that were asked for, 4 finished early "
      "at Ctrl-C.");
  std::vector<std::unique_ptr<Command>> commands;
  std::vector<CLI::App*> parsers;
  for (const CommandRow& row : kCommands) {
    commands.push_back(row.make());
    parsers.push_back(parser.add_subcommand(std::string(row.name), std::string(row.description)));
    commands.back()->define(*parsers.back());
  }
  if (!complete_command(arguments)) return kWrongUsage;
  std::reverse(arguments.begin(), arguments.end());  // the order that parse() takes them in
  try {
    parser.parse(arguments);
  } catch (const CLI::ParseError& error) {
    return parser.exit(error) == 0 ? kSuccess : kWrongUsage;
  }
  const auto chosen = std::find_if(parsers.begin(), parsers.end(),
                                   [](const CLI::App* subcommand) { return subcommand->parsed(); });
  // Before a project takes the memory that they need; for usage and help there are none.
  use_all_cores_by_default();
  return commands[static_cast<std::size_t>(chosen - parsers.begin())]->run();
}

}  // namespace
}  // namespace vorn::app

int main(int argc, char** argv) {
  using namespace vorn;
  app::occupy_standard_streams();
  app::end_before_libraries();
  app::handle_signals();
  app::use_packed_files();
  app::use_metis();
  standard_output().escape_controls();
  error_output().escape_controls();
  app::ExitStatus status = app::kFailed;
  try {
    status = app::run_command({argv + 1, argv + argc});
  } catch (const std::bad_alloc&) {
    print_out_of_memory();
  } catch (const std::exception& error) {
    error_output() << "vorn: " << error.what() << '\n';
  }
  return app::checked_console(status);
}
