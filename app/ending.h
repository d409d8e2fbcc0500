#pragma once

#include <string>
#include <vector>

#include "app/command.h"
#include "driver/run.h"

namespace vorn::app {

// How a run ended, on the error stream: what it came to, what was removed, what stands out, which
// files there are; or why it failed. `quiet` leaves out what went well.
void print_ending(const RunSummary& summary, const RunRequest& request, bool quiet);

// What made a run fail: a clause that starts with a small letter.
[[nodiscard]] std::string in_words(const NonFiniteValue& value);
[[nodiscard]] std::string in_words(const LostObject& lost);

// The files that the request makes a run write.
[[nodiscard]] std::vector<std::string> files_of(const RunSummary& summary,
                                                const RunRequest& request);

[[nodiscard]] ExitStatus status_of(const RunSummary& summary);

// Writes out the console, and makes a failure of an exit status when standard output cannot take
// all of it, which the error stream says then. A reader that has gone away has had what it wanted.
[[nodiscard]] ExitStatus checked_console(ExitStatus status);

}  // namespace vorn::app
