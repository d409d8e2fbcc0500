#pragma once

#include <rapidjson/prettywriter.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "text/text_writer.h"
#include "text/unicode.h"

namespace vorn::app {

// Where a document stands: in a file, or in markup, where no "<" may appear.
enum class JsonPlace : std::uint8_t { file, markup };

// The characters of a JSON document on their way into a file.
class JsonStream {
 public:
  using Ch = char;

  JsonStream(TextWriter& out, JsonPlace place) : out_(out), place_(place) {}
  JsonStream(const JsonStream&) = delete;
  JsonStream& operator=(const JsonStream&) = delete;
  ~JsonStream() { Flush(); }

  void Put(char c) {
    if (place_ == JsonPlace::markup && c == '<') {
      // Only texts hold one, and there its code says the same.
      for (const char escaped : std::string_view("\\u003c")) put(escaped);
      return;
    }
    put(c);
  }
  void Flush() {
    out_ << std::string_view(buffer_.data(), used_);
    used_ = 0;
  }

 private:
  void put(char c) {
    if (used_ == buffer_.size()) Flush();
    buffer_[used_++] = c;
  }

  TextWriter& out_;
  JsonPlace place_;
  std::size_t used_ = 0;
  std::array<char, 1 << 15> buffer_;
};

// Writes JSON (RFC 8259) in UTF-8: objects with a line for each member, arrays on one line. Numbers
// are the shortest text that reads back to the same double; what is not finite is null.
class JsonWriter {
 public:
  explicit JsonWriter(TextWriter& out, JsonPlace place = JsonPlace::file)
      : stream_(out, place), writer_(stream_) {
    writer_.SetIndent(' ', 1);
    writer_.SetFormatOptions(rapidjson::kFormatSingleLineArray);
  }

  void begin_object() { writer_.StartObject(); }
  void end_object() { writer_.EndObject(); }
  void begin_array() { writer_.StartArray(); }
  void end_array() { writer_.EndArray(); }
  JsonWriter& key(std::string_view name) {
    writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    return *this;
  }

  void number(double value) {
    if (!std::isfinite(value)) return null();
    char text[32];
    raw(text, std::to_chars(text, text + sizeof text, value).ptr);
  }
  // Nine significant digits.
  void short_number(double value) { rounded(value, 9); }
  // Twelve significant digits: tenths of a millimetre far from the origin.
  void coordinate(double value) { rounded(value, 12); }
  void integer(std::int64_t value) { writer_.Int64(value); }
  void flag(bool value) { writer_.Bool(value); }
  void null() { writer_.Null(); }
  // Bytes that are no UTF-8 are taken as Latin-1.
  void text(std::string_view value) {
    if (is_utf8(value)) return string(value);
    string(to_utf8(value));
  }

 private:
  void rounded(double value, int digits) {
    if (!std::isfinite(value)) return null();
    char text[64];
    raw(text, write_number(text, value, general(0, digits)));
  }
  void raw(const char* begin, const char* end) {
    writer_.RawValue(begin, static_cast<std::size_t>(end - begin), rapidjson::kNumberType);
  }
  void string(std::string_view value) {
    writer_.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }

  JsonStream stream_;
  rapidjson::PrettyWriter<JsonStream> writer_;
};

}  // namespace vorn::app
