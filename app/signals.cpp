#include "app/signals.h"

#include <csignal>
#include <cstring>

#include "text/output_files.h"

#ifdef _WIN32
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vorn::app {
namespace {

constexpr char kLastWords[] = "\n*** ERROR: The run was interrupted by a signal.\n";
constexpr char kMessage[] = "\nvorn: interrupted; earlier results are as they were\n";

#ifdef _WIN32
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGBREAK};
void write_message() {
  static_cast<void>(_write(2, kMessage, static_cast<unsigned>(std::strlen(kMessage))));
}
#else
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU};
void write_message() {
  // There is nobody left to tell when it fails.
  [[maybe_unused]] const auto written = ::write(2, kMessage, std::strlen(kMessage));
}
#endif

extern "C" void end_process(int signal) {
  if (!abandon_outputs_on_signal(signal, kLastWords)) {
    std::signal(signal, end_process);  // some systems forget it
    return;
  }
  write_message();
  // The process ends as it would have without this handler.
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

void handle_signals() {
  for (const int signal : kEndingSignals) {
    if (std::signal(signal, end_process) == SIG_IGN) std::signal(signal, SIG_IGN);
  }
#ifndef _WIN32
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
#endif
}

void occupy_standard_streams() {
#ifndef _WIN32
  // The lowest free descriptor is what open() gives. For the other direction each is useless.
  while (true) {
    const int descriptor = ::open("/dev/null", O_RDONLY);
    if (descriptor > STDERR_FILENO || descriptor < 0) {
      if (descriptor >= 0) ::close(descriptor);
      return;
    }
  }
#endif
}

}  // namespace vorn::app
