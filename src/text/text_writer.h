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
// without a file discards what is written, and so does one whose file cannot be written any more.
class TextWriter {
 public:
  TextWriter() = default;
  // Writes to a stream that is open already and stays open (standard output, error stream).
  explicit TextWriter(std::FILE* stream);
  ~TextWriter();
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  // Opens `path` as a text file, truncating what is there. False when it cannot be opened.
  bool open(const std::string& path);
  bool is_open() const { return stream_ != nullptr; }
  // Writes out the buffer, also to the system.
  void flush();
  // Writes out the buffer and then the text, without taking any memory.
  void write_through(std::string_view text);
  void close();

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
  char* reserve(std::size_t count);
  void drain();

  std::FILE* stream_ = nullptr;
  bool owned_ = false;
  std::unique_ptr<char[]> buffer_;
  std::size_t used_ = 0;
};

// The process's standard output and error streams. Their buffers are written out by flush_console.
TextWriter& standard_output();
TextWriter& error_output();
// Writes out both; every run ends with it.
void flush_console();

}  // namespace vorn
