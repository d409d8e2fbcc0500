// Whole projects: the input is the control file, then data files, each behind a line "@@name".

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "fuzz/fuzz_target.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"

namespace vorn::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxSize = 12'000;
constexpr std::int32_t kMaxIterations = 4;
constexpr std::int64_t kMaxGridPoints = 200;
constexpr std::string_view kMark = "\n@@";
constexpr std::string_view kControlFile = "project.ctl";

// A directory of its own, empty before each round; it disappears with the process.
class Scratch {
 public:
  Scratch()
      : path_(fs::canonical(fs::temp_directory_path()) /
              ("vorn-fuzz-" + std::to_string(reinterpret_cast<std::uintptr_t>(this)) + '-' +
               std::to_string(fs::file_time_type::clock::now().time_since_epoch().count()))) {
    fs::create_directories(path_);
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  void clear() const {
    for (const fs::directory_entry& entry : fs::directory_iterator(path_)) {
      fs::remove_all(entry.path());
    }
  }
  void write(std::string_view name, std::string_view text) const {
    std::ofstream(path_ / name, std::ios::binary)
        .write(text.data(), static_cast<std::streamsize>(text.size()));
  }
  std::string file(std::string_view name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

bool is_plain_name(std::string_view name) {
  return !name.empty() && name.size() < 32 && name != "." && name != ".." &&
         name.find('\0') == std::string_view::npos;
}

// Any file may turn out to be that of the least-squares parameters; the number of its iterations is
// the user's wish, which a round cannot grant.
bool iterates_too_long(std::string_view text) {
  LSParams settings;
  TokenReader in(text);
  in.read(settings.sigma0_apriori);
  std::int32_t iterations = 0;
  return in.read(iterations) ? iterations > kMaxIterations : iterations != 0;
}

// Calls `use(name, text)` for every file of the input.
template <class Use>
void for_each_file(std::string_view input, Use use) {
  std::string_view name = kControlFile;
  for (;;) {
    const std::size_t end = input.find(kMark);
    if (is_plain_name(name)) use(name, input.substr(0, end));
    if (end == std::string_view::npos) return;
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
  bool too_long = false;
  for_each_file(input, [&](std::string_view, std::string_view text) {
    too_long = too_long || iterates_too_long(text);
  });
  if (too_long) return false;

  static const Scratch scratch;
  scratch.clear();
  for_each_file(input,
                [](std::string_view name, std::string_view text) { scratch.write(name, text); });
  ls_params() = LSParams();
  const std::string before = current_directory();
  const RunSummary summary = run_project(scratch.file(kControlFile), true, inspect);
  require(summary.result == 0 || summary.result == 1, "a run gives 0 or 1");
  require(summary.started, "a control file that exists is read");
  change_directory(before);
  ls_params() = LSParams();
  return true;
}

constexpr std::array<FuzzTarget, 1> kTargets = {{{"project", fuzz_project}}};

}  // namespace

std::span<const FuzzTarget> project_targets() { return kTargets; }

}  // namespace vorn::fuzz
