// Runs one project and prints what its stages took, as one line of key=value pairs. Used by
// bench/run.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/separators/separators.h"
#include "app/threads/threads.h"
#include "driver/run.h"
#include "lsq/linalg/kernels.h"
#include "text/text_writer.h"

namespace {

// Largest resident memory of this process so far [MiB]; 0 where the system does not tell.
long peak_mib() {
  long kib = 0;
  if (std::FILE* const status = std::fopen("/proc/self/status", "r")) {
    char line[256];
    while (std::fgets(line, sizeof line, status) != nullptr) {
      if (std::sscanf(line, "VmHWM: %ld", &kib) == 1) break;
    }
    std::fclose(status);
  }
  return kib / 1024;
}

// Pages that this process has touched first; 0 where the system does not tell.
long page_faults() {
  long faults = 0;
  if (std::FILE* const status = std::fopen("/proc/self/stat", "r")) {
    // The name of the program, in brackets, may hold blanks.
    if (std::fscanf(status, "%*d (%*[^)]) %*c %*d %*d %*d %*d %*d %*u %ld", &faults) != 1)
      faults = 0;
    std::fclose(status);
  }
  return faults;
}

// Adds up the processor time of the iterations.
class IterationTimes final : public vorn::RunObserver {
 public:
  vorn::ObserverAnswer on_iteration(const vorn::IterationStatistics& statistics) override {
    cpu_seconds += statistics.cpu_seconds;
    solution_cpu_seconds += statistics.solution_cpu_seconds;
    return vorn::ObserverAnswer::go_on;
  }
  double cpu_seconds = 0.0;
  double solution_cpu_seconds = 0.0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 4) {
    std::fputs("usage: run_project PROJECT.ctl [KERNELS [THREADS]]\n", stderr);
    return 2;
  }
  vorn::app::use_metis();
  // An empty name leaves the kernels to the processor.
  if (argc >= 3 && !vorn::use_kernels(argv[2])) {
    std::fputs("run_project: no such kernels here\n", stderr);
    return 2;
  }
  if (argc == 4) vorn::app::use_threads(std::strtoul(argv[3], nullptr, 10));
  IterationTimes iterations;
  vorn::RunRequest request{.path = argv[1]};
  request.observer = &iterations;
  const vorn::RunSummary summary = vorn::run_project(request);
  vorn::flush_console();
  const vorn::RunTimes& times = summary.times;
  const double count = summary.iterations > 0 ? summary.iterations : 1;
  const double total = times.read + times.initialise + times.iterate + times.write;
  std::printf(
      "result=%d iterations=%d redundancy=%d sigma0_um=%.4f read_s=%.4f init_s=%.4f "
      "iterate_s=%.4f s_per_iter=%.5f write_s=%.4f total_s=%.4f peak_MiB=%ld cpu_per_iter=%.5f "
      "cpu_solution=%.5f page_faults=%ld\n",
      summary.result, summary.iterations, summary.redundancy, summary.sigma0 * 1e6, times.read,
      times.initialise, times.iterate, times.iterate / count, times.write, total, peak_mib(),
      iterations.cpu_seconds / count, iterations.solution_cpu_seconds / count, page_faults());
  return summary.result == 1 ? 0 : 1;
}
