// The command `vorn`: runs one project at a shell.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <exception>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/keywords.h"
#include "driver/run.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace {

using vorn::BundleProject;
using vorn::error_output;
using vorn::standard_output;
using vorn::TextWriter;

constexpr int kCompleted = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

using Inspection = std::function<void(const BundleProject&)>;

int refuse(std::string_view what, std::string_view path) {
  error_output() << "vorn: " << what << ": " << path << '\n';
  return kFailed;
}

// A name of a project's file as seen from the directory of its control file.
std::string from_directory_of(const std::string& control_file, std::string_view name) {
  const vorn::PathParts parts = vorn::split_path(vorn::absolute_path(control_file));
  const vorn::PathParts named = vorn::split_path(name);
  const bool absolute = !named.drive.empty() || named.directory.find_first_of("/\\") == 0;
  return (absolute ? std::string() : parts.drive + parts.directory) + std::string(name);
}

// Calls `visit(keyword, path)` for every data file that a control file names.
template <class Visit>
void for_each_data_file(const std::string& control_file, Visit visit) {
  vorn::FileText text;
  if (!text.load(control_file)) return;
  vorn::TokenReader in(text.view());
  std::string_view keyword;
  std::string_view name;
  while (in.read_word(keyword) && vorn::lookup_keyword(keyword) != vorn::Keyword::stop_dep &&
         in.read_word(name)) {
    visit(vorn::lookup_keyword(keyword), from_directory_of(control_file, name));
  }
}

// The files of the normal equations that an options file names.
std::vector<std::string> normal_equation_files(const std::string& options_file) {
  vorn::Options options;
  vorn::FileText text;
  if (text.load(options_file)) {
    vorn::TokenReader in(text.view());
    std::string_view failure;
    options.read_fields(in, failure);
  }
  std::vector<std::string> names;
  for (const std::string& name :
       {options.structure_file, options.matrix_file, options.rhs_file, options.solution_file}) {
    if (name != "none") names.push_back(name);
  }
  return names;
}

// Everything that a run may write to.
std::vector<std::string> written_files(const std::string& control_file, bool with_cameras) {
  std::vector<std::string> dumps;
  for_each_data_file(control_file, [&](vorn::Keyword keyword, const std::string& data_file) {
    // Later options replace earlier ones.
    if (keyword == vorn::Keyword::params) dumps = normal_equation_files(data_file);
  });
  std::vector<std::string> files =
      vorn::output_names(vorn::split_path(vorn::absolute_path(control_file))).opened(with_cameras);
  for (const std::string& name : dumps) files.push_back(from_directory_of(control_file, name));
  return files;
}

// Refuses a project that the run could not read or would destroy. True when it may run.
bool may_run(const std::string& path, bool with_cameras) {
  const vorn::FileKind kind = vorn::file_kind(path);
  if (kind == vorn::FileKind::missing) return refuse("no such control file", path) == kCompleted;
  if (kind == vorn::FileKind::directory) {
    return refuse("a directory is no control file", path) == kCompleted;
  }
  bool safe = true;
  for (const std::string& output : written_files(path, with_cameras)) {
    if (vorn::same_file(output, path)) {
      refuse("the control file has the name of one of its own outputs", path);
      return false;
    }
    for_each_data_file(path, [&](vorn::Keyword, const std::string& data_file) {
      if (!vorn::same_file(output, data_file)) return;
      refuse("a data file has the name of one of the outputs and would be overwritten", data_file);
      safe = false;
    });
  }
  return safe;
}

void print_summary(const vorn::RunSummary& summary, bool with_cameras) {
  constexpr vorn::NumberFormat kSigma0 = vorn::fixed(3);
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

int run(const std::string& path, bool with_cameras, const Inspection& inspect) {
  if (!may_run(path, with_cameras)) return kFailed;
  const vorn::RunSummary summary = vorn::run_project(path, with_cameras, inspect);
  // The library's own text comes first, whatever the streams are connected to.
  vorn::flush_console();
  print_summary(summary, with_cameras);
  return summary.result == 1 ? kCompleted : kFailed;
}

void print_grids(const BundleProject& project) {
  for (const vorn::APSet& set : project.ap_sets) {
    set.print_grid_effects(standard_output(), project.options, project.cameras);
  }
}

void print_listings(const BundleProject& project, bool results, bool significance) {
  for (std::int32_t i = 0; results && i < project.unknowns.num_objects(); ++i) {
    project.unknowns[i].print_results(standard_output());
  }
  for (std::int32_t i = 0; significance && i < project.unknowns.num_objects(); ++i) {
    project.unknowns[i].print_significance(standard_output());
  }
}

int run_command(int argc, char** argv) {
  CLI::App app("Bundle adjustment of photogrammetric projects.", "vorn");
  app.set_version_flag("--version", "vorn " VORN_VERSION);
  app.require_subcommand(1);
  app.footer("Exit status: 0 adjustment completed, 1 failed, 2 wrong usage.");

  std::string project;
  bool with_cameras = false;
  bool results = false;
  bool significance = false;
  const auto add = [&](const char* name, const char* description) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_option("PROJECT", project, "control file of the project")->required();
    return command;
  };
  CLI::App* const adjust = add("adjust", "Adjust a project; write its report and result files");
  adjust->add_flag("--cameras", with_cameras, "also write the camera result file");
  CLI::App* const grid =
      add("grid", "Adjust a project; print the effects of its additional-parameter sets on a grid");
  CLI::App* const list =
      add("list", "Adjust a project; list all unknowns with their changes and significance");
  list->add_flag("--results", results, "only the listing of results");
  list->add_flag("--significance", significance, "only the listing with the significance test");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kCompleted : kWrongUsage;
  }
  if (adjust->parsed()) return run(project, with_cameras, {});
  if (grid->parsed()) return run(project, false, print_grids);
  const bool both = results == significance;
  return run(project, false, [&](const BundleProject& adjusted) {
    print_listings(adjusted, both || results, both || significance);
  });
}

}  // namespace

int main(int argc, char** argv) {
  int status = kFailed;
  try {
    status = run_command(argc, argv);
  } catch (const std::bad_alloc&) {
    vorn::print_out_of_memory();
  } catch (const std::exception& error) {
    error_output() << "vorn: " << error.what() << '\n';
  }
  vorn::flush_console();
  return status;
}
