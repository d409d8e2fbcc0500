#pragma once

#include <stdexcept>
#include <string>
#include <thread>

#include "text/text_writer.h"

namespace vorn::python {

// What a call cannot do, for the user.
class CallError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The library is one run at a time, keeps numbers for the whole process, prints on the console and
// changes the current directory. While a scope lives, its thread has all of that for itself; what
// is printed is kept, and the directory is as before when it ends. Made without the interpreter's
// lock.
class RunScope {
 public:
  // Waits for a call of another thread. Throws CallError where the same thread has one: a callback
  // that starts another run.
  RunScope();
  ~RunScope();
  RunScope(const RunScope&) = delete;
  RunScope& operator=(const RunScope&) = delete;

  // What was printed so far.
  [[nodiscard]] const std::string& messages();

 private:
  std::string directory_;
  std::string text_;
};

}  // namespace vorn::python
