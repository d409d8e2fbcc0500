// Whole projects: the input is the control file, then data files, each behind a line "@@name".

#include <filesystem>
#include <utility>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "fuzz/fuzz_target.h"
#include "lsq/ls_params.h"
#include "support/temp_dir.h"

namespace vorn::fuzz {
namespace {

constexpr std::size_t kMaxSize = 12'000;
constexpr std::int32_t kMaxIterations = 4;
constexpr std::int64_t kMaxGridPoints = 200;
constexpr std::string_view kMark = "\n@@";

// Any file may turn out to be that of the least-squares parameters; the number of its iterations is
// the user's wish, which a round cannot grant.
bool iterates_too_long(std::string_view text) {
  TokenReader in(text);
  double sigma = 0.0;
  std::int32_t iterations = 0;
  in.read(sigma);
  return in.read(iterations) ? iterations > kMaxIterations : iterations != 0;
}

// Names and texts of the files of the input.
std::vector<std::pair<std::string_view, std::string_view>> files_of(std::string_view input) {
  std::vector<std::pair<std::string_view, std::string_view>> files;
  for (std::string_view name = "project.ctl";;) {
    const std::size_t end = input.find(kMark);
    const bool plain = !name.empty() && name.size() < 32 && name != "." && name != ".." &&
                       name.find('\0') == std::string_view::npos;
    if (plain) files.emplace_back(name, input.substr(0, end));
    if (end == std::string_view::npos) return files;
    input.remove_prefix(end + kMark.size());
    const std::size_t line = input.find('\n');
    name = input.substr(0, line);
    input = line == std::string_view::npos ? std::string_view() : input.substr(line + 1);
  }
}

// Everything that a finished run can be asked for.
void inspect(const BundleProject& project) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    project.unknowns[i].print_results(standard_output());
    project.unknowns[i].print_significance(standard_output());
  }
  const Options& options = project.options;
  if (std::int64_t{options.grid_x} * options.grid_y > kMaxGridPoints) return;
  for (const APSet& set : project.ap_sets) {
    set.print_grid_effects(standard_output(), options, project.cameras);
  }
}

bool fuzz_project(std::string_view input) {
  // No name leads out of the directory.
  if (input.size() > kMaxSize || input.find_first_of("/\\") != std::string_view::npos) return false;
  const auto files = files_of(input);
  for (const auto& [name, text] : files) {
    if (iterates_too_long(text)) return false;
  }
  // One directory for all rounds, empty before each of them.
  static const test::TempDir scratch;
  for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
    std::filesystem::remove_all(entry);
  }
  for (const auto& [name, text] : files) scratch.write(name, text);
  const std::filesystem::path before = std::filesystem::current_path();
  const RunSummary summary = run_project(scratch.path("project.ctl"), true, inspect);
  require(summary.result == 0 || summary.result == 1, "a run gives 0 or 1");
  require(summary.started, "a control file that exists is read");
  std::filesystem::current_path(before);
  ls_params() = LSParams();
  return true;
}

constexpr FuzzTarget kTargets[] = {{"project", fuzz_project}};

}  // namespace

std::span<const FuzzTarget> project_targets() { return kTargets; }

}  // namespace vorn::fuzz
