#include "app/signals.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
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
constexpr char kWaits[] =
    "\nvorn: the running iteration is the last one; a second interrupt ends the run at once\n";

std::atomic<const char*> last_message = nullptr;
std::atomic<bool> waiting = false;
std::atomic<bool> interrupted = false;

#ifdef _WIN32
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGBREAK};
void write_message(const char* message) {
  static_cast<void>(_write(2, message, static_cast<unsigned>(std::strlen(message))));
}
#else
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU};
void write_message(const char* message) {
  // There is nobody left to tell when it fails.
  [[maybe_unused]] const auto written = ::write(2, message, std::strlen(message));
}
#endif

// Whether an interrupt is the first one that may wait.
bool may_wait(int signal) { return signal == SIGINT && waiting && !interrupted.exchange(true); }

extern "C" void end_process(int signal) {
  const char* const message = last_message;
  if (may_wait(signal)) {
    std::signal(signal, end_process);
    if (message == nullptr) write_message(kWaits);
    return;
  }
  if (!abandon_outputs_on_signal(signal, kLastWords)) {
    std::signal(signal, end_process);  // some systems forget it
    return;
  }
  write_message(message == nullptr ? kMessage : message);
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

void let_interrupts_wait(bool wait) { waiting = wait; }

bool interrupt_waits() { return interrupted; }

void set_last_message(const char* message) { last_message = message; }

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
