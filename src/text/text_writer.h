#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "text/number_format.h"

namespace vorn {

// Text in a field of `width` characters, filled with blanks.
struct PaddedText {
  std::string_view text;
  int width;
  bool left;
};
constexpr PaddedText right_aligned(std::string_view text, int width) {
  return {text, width, false};
}
constexpr PaddedText left_aligned(std::string_view text, int width) { return {text, width, true}; }

// A text output with one large buffer. Numbers are formatted straight into the buffer. A writer
// without a file discards what is written, and so does one whose file cannot be written any more;
// it keeps its first error. Streams that stay open are tried again with each write.
class TextWriter {
 public:
  TextWriter() = default;
  // Writes to a stream that is open already and stays open (standard output, error stream).
  explicit TextWriter(std::FILE* stream);
  ~TextWriter();
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  // Opens `path` as a text file, truncating what is there. False when it cannot be opened; the
  // error says why.
  [[nodiscard]] bool open(const std::string& path);
  // Opens a file that has no name yet in a directory ("" for the current one). False where the
  // system has no such files.
  [[nodiscard]] bool open_nameless(const std::string& directory);
  bool is_open() const { return stream_ != nullptr; }
  // The system's number of the first error in opening, writing, flushing or closing since the file
  // was opened; 0 for none.
  int error() const { return error_; }
  // What was written since the file was opened [bytes].
  std::uint64_t size() const { return written_ + used_; }
  // From here on control characters other than line ends and tabs are written as "\\x1b": text of
  // data files must not command a terminal.
  void escape_controls() { escapes_ = true; }
  // From here on what is written, escapes included, is appended to a text in place of the file;
  // null ends that. The text outlives the capture.
  void capture(std::string* text);
  // Writes out the buffer, also to the system.
  void flush();
  // The same, and from the system to its device.
  void sync();
  // Writes out the buffer and then the text, without taking any memory.
  void write_through(std::string_view text);
  // Closes the file. What has gone wrong with it by then stands in error().
  void close();
  // The open file, for what is not text; null when there is none.
  std::FILE* stream() const { return stream_; }

  TextWriter& operator<<(std::string_view text);
  TextWriter& operator<<(char c);
  TextWriter& operator<<(const FormattedNumber& number);
  TextWriter& operator<<(const PaddedText& text);
  TextWriter& operator<<(std::int32_t value);
  TextWriter& operator<<(std::int64_t value);
  TextWriter& operator<<(std::uint32_t value);
  TextWriter& operator<<(std::uint64_t value);
  // An integer right-aligned in a field.
  TextWriter& integer(std::int64_t value, int width);

 private:
  bool take(std::FILE* stream);
  bool discards() const { return stream_ == nullptr && captured_ == nullptr; }
  char* reserve(std::size_t count);
  void drain();
  void write(const char* text, std::size_t size);
  void write_escaped(const char* text, std::size_t size);
  // Keeps the first error, unless `done`.
  void check(bool done);

  std::FILE* stream_ = nullptr;
  bool owned_ = false;
  bool escapes_ = false;
  std::string* captured_ = nullptr;
  int error_ = 0;
  std::uint64_t written_ = 0;
  std::unique_ptr<char[]> buffer_;
  std::size_t used_ = 0;
};

// The process's standard output and error streams. Their buffers are written out by flush_console.
TextWriter& standard_output();
TextWriter& error_output();
// What stands for them on a thread; nulls: nothing else.
struct Console {
  TextWriter* standard = nullptr;
  TextWriter* error = nullptr;
};
// From now on this does, on the running thread. What did so before.
Console redirect_console(Console console);
// Writes out both; every run ends with it.
void flush_console();

}  // namespace vorn
