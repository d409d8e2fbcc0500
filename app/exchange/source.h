#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

#include "text/file_system.h"

namespace vorn::exchange {

// A source that cannot be taken over: what is wrong, with the file and the line or byte.
class ExchangeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The whole content of a file that somebody else has written, and where in it something is wrong.
class Source {
 public:
  enum class Kind { text, binary };

  // Reads a file. Throws ExchangeError when there is none.
  Source(const std::string& path, Kind kind);
  // A text in memory, which must outlive the source.
  Source(std::string name, std::string_view content, Kind kind);

  // Without the mark of UTF-8 that some programs put in front of a text.
  std::string_view content() const { return content_; }
  const std::string& name() const { return name_; }
  std::size_t offset_of(const char* at) const {
    return static_cast<std::size_t>(at - content_.data());
  }
  // Throws "NAME:LINE: message" for a text, "NAME: byte N: message" for a binary file.
  [[noreturn]] void fail(std::size_t offset, const std::string& message) const;
  [[noreturn]] void fail(const char* at, const std::string& message) const {
    fail(offset_of(at), message);
  }

 private:
  std::string name_;
  Kind kind_;
  FileText file_;
  std::string_view content_;
};

// Walks over the lines of a text; ends LF or CR LF.
class Lines {
 public:
  explicit Lines(const Source& source) : source_(source), rest_(source.content()) {}
  // False at the end of the text.
  bool next(std::string_view& line);
  const Source& source() const { return source_; }

 private:
  const Source& source_;
  std::string_view rest_;
};

// Text without the white space around it.
std::string_view trimmed(std::string_view text);

// Walks over the words of a line, or of a whole text. Whatever cannot be read throws an
// ExchangeError that says what was wanted.
class Fields {
 public:
  Fields(const Source& source, std::string_view text)
      : source_(&source), pos_(text.data()), end_(text.data() + text.size()) {}

  bool at_end();
  // Next word; `what` says in a message what should have stood there.
  std::string_view word(std::string_view what);
  // A number that is finite, the whole word long.
  double real(std::string_view what);
  // A whole number in the range of its type, the whole word long.
  template <class Int>
  Int integer(std::string_view what) {
    const std::string_view text = word(what);
    Int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) refuse(text, what);
    return value;
  }
  // What is left of the text, without white space around it.
  std::string_view rest();
  // Throws when anything is left.
  void expect_end();
  [[noreturn]] void fail(const std::string& message) const { source_->fail(pos_, message); }

 private:
  [[noreturn]] void refuse(std::string_view text, std::string_view what) const;

  const Source* source_;
  const char* pos_;
  const char* end_;
};

// Walks over the bytes of a binary file whose numbers have their lowest byte first.
class Bytes {
 public:
  explicit Bytes(const Source& source) : source_(source) {}

  std::size_t offset() const { return offset_; }
  std::size_t left() const { return source_.content().size() - offset_; }
  std::uint8_t byte(std::string_view what) { return static_cast<std::uint8_t>(take(1, what)[0]); }
  std::uint32_t uint32(std::string_view what) {
    return static_cast<std::uint32_t>(unsigned_number(4, what));
  }
  std::uint64_t uint64(std::string_view what) { return unsigned_number(8, what); }
  // A number that is finite.
  double real(std::string_view what);
  // Text up to a zero byte.
  std::string_view text(std::string_view what);
  // A number of records, each of at least `size` bytes, that the rest of the file can hold.
  std::size_t count(std::size_t size, std::string_view what);
  void skip(std::size_t size, std::string_view what) { take(size, what); }
  // Throws when anything is left.
  void expect_end() const;
  [[noreturn]] void fail(const std::string& message) const { source_.fail(offset_, message); }

 private:
  const char* take(std::size_t size, std::string_view what);
  std::uint64_t unsigned_number(std::size_t size, std::string_view what);

  const Source& source_;
  std::size_t offset_ = 0;
};

// Throws ExchangeError unless the number is greater than 0 and finite.
void require_positive(double value, const char* what);

// The text as a word of a project: blanks become '_', and a word that would end a list gets a '_'
// in front.
std::string as_word(std::string_view text);

}  // namespace vorn::exchange
