#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "text/text_writer.h"

namespace vorn::test {

// What `action()` prints on standard output.
template <class Action>
std::string captured_output(Action action) {
  flush_console();
  testing::internal::CaptureStdout();
  action();
  flush_console();
  const std::string output = testing::internal::GetCapturedStdout();
  // Failed expectations inside the action report there, too.
  if (testing::Test::HasFailure()) std::fputs(output.c_str(), stdout);
  return output;
}

// What `action()` prints on the error stream.
template <class Action>
std::string captured_errors(Action action) {
  flush_console();
  testing::internal::CaptureStderr();
  action();
  flush_console();
  return testing::internal::GetCapturedStderr();
}

// What `action(writer)` writes.
template <class Action>
std::string written_text(Action action) {
  return captured_output([&] { action(standard_output()); });
}

}  // namespace vorn::test
