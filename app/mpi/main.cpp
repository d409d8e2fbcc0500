// vorn-mpi: one adjustment by several processes. Started by mpirun or srun; every process runs the
// same stages with its share of the points, the first one writes the files.

#include <mpi.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "app/command.h"
#include "app/ending.h"
#include "app/mpi/communicator.h"
#include "app/mpi/mpi_share.h"
#include "app/packed/packed.h"
#include "app/signals.h"
#include "app/threads/threads.h"
#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "driver/run.h"

namespace vorn::app {
namespace {

constexpr double kMicrometres = 1e6;

// Something that all processes refuse alike.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Arguments {
  RunRequest request;
  std::size_t threads = 1;
  bool quiet = false;
};

// Tells of the iterations, in the first process.
class Watcher final : public RunObserver {
 public:
  explicit Watcher(bool tells) : tells_(tells) {}

  ObserverAnswer on_iteration(const IterationStatistics& statistics) override {
    if (tells_) {
      error_output() << "iteration " << statistics.number << ": sigma 0 "
                     << fixed(3)(statistics.sigma0 * kMicrometres) << " um\n";
      error_output().flush();
    }
    return ObserverAnswer::go_on;
  }

 private:
  bool tells_;
};

// What only a process that has all points can write.
void refuse_what_needs_all(const Options& options, bool is_alone) {
  const auto refuse = [](bool wanted, std::string_view what) {
    if (!wanted) return;
    throw Refusal("the project's options ask for " + std::string(what) +
                  ": only `vorn adjust`, one process, has that");
  };
  refuse(options.debug_upari_table && !is_alone, "the table of unknowns");
  for (const std::string* file :
       {&options.structure_file, &options.matrix_file, &options.rhs_file, &options.solution_file}) {
    refuse(*file != "none", "a file of the normal equations");
  }
}

// The exit status where the arguments ask for no run.
std::optional<ExitStatus> parse(std::vector<std::string> words, const Communicator& processes,
                                Arguments& arguments) {
  CLI::App parser("Bundle adjustment of one project by several processes.", "vorn-mpi");
  parser.set_version_flag("--version", "vorn-mpi " VORN_VERSION);
  parser.footer(
      "Start it by mpirun or srun. Options of vorn adjust that are not listed need one "
      "process that has everything.");
  parser.add_option("PROJECT", arguments.request.path, "control file of the project")->required();
  parser.add_flag("--cameras", arguments.request.with_cameras, "also write the camera result file");
  parser.add_flag("--rigorous", arguments.request.settings.rigorous,
                  "derivatives of the observation equation itself");
  parser.add_option("--threads", arguments.threads, "threads of each process [1]")
      ->check(CLI::Range(std::size_t{1}, has_threads() ? kMostThreads : 1));
  parser.add_flag("-q,--quiet", arguments.quiet, "tell only what goes wrong");
  parser.allow_extras();
  try {
    std::reverse(words.begin(), words.end());  // the order that parse() takes them in
    parser.parse(words);
  } catch (const CLI::ParseError& error) {
    if (processes.is_first()) return parser.exit(error) == 0 ? kSuccess : kWrongUsage;
    return error.get_exit_code() == 0 ? kSuccess : kWrongUsage;
  }
  const std::vector<std::string> others = parser.remaining();
  if (others.empty()) return std::nullopt;
  if (processes.is_first()) {
    error_output() << "vorn-mpi: " << others.front()
                   << ": vorn-mpi does not have that; vorn adjust, one process, may\n";
  }
  return kWrongUsage;
}

bool may_run(const Arguments& arguments, const Communicator& processes) {
  if (!processes.is_first()) return true;
  const std::vector<Obstacle> obstacles =
      find_obstacles({arguments.request.path, arguments.request.with_cameras});
  for (const Obstacle& obstacle : obstacles) {
    error_output() << "vorn-mpi: " << text_of(obstacle.kind) << ": " << obstacle.file << '\n';
  }
  return obstacles.empty();
}

RunSummary adjust(Arguments& arguments, Communicator& processes) {
  RunRequest& request = arguments.request;
  MpiShare share(processes);
  Watcher watcher(processes.is_first() && !arguments.quiet);
  bool converged = false;
  request.outputs = processes.is_first() ? OutputMode::replaced : OutputMode::discarded;
  request.observer = &watcher;
  request.prepare = [&](BundleProject& project, TextWriter& /*report*/) {
    refuse_what_needs_all(project.options, processes.size() == 1);
    share.keep_own_points(project);
  };
  request.inspect = [&converged](const BundleProject& project) { converged = project.converged; };
  use_point_share(&share);
  RunSummary summary = run_project(request);
  summary.ending.converged = converged;
  return summary;
}

// What a process has to say when everything else is done: what the library has written to standard
// output, and why the run failed, in words.
struct LastWords {
  std::string said;
  std::string trouble;
};

// Runs the project, and never leaves the other processes waiting. Nothing when there was no run, or
// none that ended by itself.
std::optional<RunSummary> try_to_adjust(Arguments& arguments, Communicator& processes,
                                        LastWords& words) {
  std::optional<RunSummary> summary;
  standard_output().capture(&words.said);
  try {
    const bool may = may_run(arguments, processes);
    if (processes.minimum(may ? 1.0 : 0.0) == 1.0) summary = adjust(arguments, processes);
  } catch (const PartnerGone&) {
    words.trouble = "the run is ended, because another process has ended it";
  } catch (const Refusal& refusal) {
    words.trouble = refusal.what();
  } catch (const std::bad_alloc&) {
    words.trouble = "there is not enough memory";
  } catch (const std::exception& error) {
    words.trouble = error.what();
  }
  use_point_share(nullptr);
  standard_output().capture(nullptr);
  processes.leave(summary && status_of(*summary) != kFailed);
  return summary;
}

// The largest memory of this process so far [KiB].
std::int64_t peak_memory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// How much memory each process took, in the closing summary.
void print_memory(Communicator& processes, bool prints) {
  constexpr std::int64_t kKibPerMib = 1024;
  std::string own;
  append(own, peak_memory());
  std::string line;
  processes.gather(own, [&line](int rank, std::string_view bytes) {
    line += (rank == 0 ? "" : ", ") + std::to_string(take<std::int64_t>(bytes) / kKibPerMib);
  });
  if (prints) error_output() << "  memory      " << line << " MiB, by processes\n";
}

// The first process prints what it has to say, then what others add to that.
void print_last_words(const LastWords& words, Communicator& processes) {
  std::string own;
  append_text(own, words.said);
  append_text(own, words.trouble);
  std::set<std::string, std::less<>> lines;
  std::set<std::string, std::less<>> troubles;
  processes.gather(own, [&](int rank, std::string_view bytes) {
    std::string_view said = take_text(bytes);
    const std::string_view trouble = take_text(bytes);
    while (!said.empty()) {
      const std::string_view line = said.substr(0, said.find('\n') + 1);
      said.remove_prefix(line.size());
      const bool is_new = lines.emplace(line).second;
      if (is_new || rank == 0) standard_output() << line;
    }
    if (trouble.empty() || !troubles.emplace(trouble).second) return;
    error_output() << "vorn-mpi: process " << rank << ": " << trouble << '\n';
  });
  flush_console();
}

ExitStatus run(const std::vector<std::string>& words) {
  Communicator processes;
  Arguments arguments;
  if (const auto refused = parse(words, processes, arguments)) return *refused;
  use_threads(arguments.threads);
  LastWords last_words;
  const std::optional<RunSummary> summary = try_to_adjust(arguments, processes, last_words);
  print_last_words(last_words, processes);
  if (processes.is_first() && summary) print_ending(*summary, arguments.request, arguments.quiet);
  print_memory(processes,
               processes.is_first() && summary && summary->result == 1 && !arguments.quiet);
  if (!summary) return kFailed;
  return status_of(*summary);
}

// False, with a sentence on the error stream, where the address space is so small that the
// libraries behind MPI and MUMPS would wait for ever for memory that they do not get.
bool has_address_space() {
  constexpr rlim_t kSmallest = rlim_t{1} << 30U;
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur >= kSmallest) return true;
  error_output() << "vorn-mpi: each process needs an address space of 1 GiB (ulimit -v)\n";
  return false;
}

}  // namespace
}  // namespace vorn::app

int main(int argc, char** argv) {
  using namespace vorn;
  if (!app::has_address_space()) return app::checked_console(app::kFailed);
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  app::handle_signals();
  app::use_packed_files();
  standard_output().escape_controls();
  error_output().escape_controls();
  const app::ExitStatus status = app::checked_console(app::run({argv + 1, argv + argc}));
  MPI_Finalize();
  return status;
}
