#pragma once

#include <string>

#include "text/text_writer.h"

namespace vorn {

// A writer whose text goes to a string.
class KeptText {
 public:
  KeptText() { writer_.capture(&text_); }
  ~KeptText() { writer_.capture(nullptr); }
  KeptText(const KeptText&) = delete;
  KeptText& operator=(const KeptText&) = delete;

  TextWriter& writer() { return writer_; }
  // What was written; nothing is written afterwards. Throws std::bad_alloc when there was no memory
  // for all of it.
  std::string take();

 private:
  std::string text_;
  TextWriter writer_;
};

// What the running thread says on the console is kept for as long as this object lives.
class KeptConsole {
 public:
  KeptConsole() : before_(redirect_console({&standard_.writer(), &error_.writer()})) {}
  ~KeptConsole() { redirect_console(before_); }
  KeptConsole(const KeptConsole&) = delete;
  KeptConsole& operator=(const KeptConsole&) = delete;

  // As KeptText::take.
  std::string take_standard() { return standard_.take(); }
  std::string take_error() { return error_.take(); }

 private:
  KeptText standard_;
  KeptText error_;
  Console before_;
};

}  // namespace vorn
