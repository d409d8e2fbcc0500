#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

#include "text/number_format.h"

namespace vorn::test {

// The standard library's formatted extraction, which the token reader promises to follow.
class ReferenceReader {
 public:
  explicit ReferenceReader(std::string_view text) : in_(std::string(text)) {
    in_.imbue(std::locale::classic());
  }
  bool failed() const { return in_.fail(); }
  template <class T>
  bool read(T& value) {
    return !!(in_ >> value);
  }
  bool read_word(std::string& word) { return read(word); }
  bool read_char(char& c) { return read(c); }
  void skip_line() {
    if (in_.good()) in_.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  // Either (a, b), where what follows a closing bracket is 0, or plain numbers.
  bool read_list(double* target, int count) {
    double values[3] = {};
    char c = '\0';
    in_ >> c;
    const bool bracket = c == '(';
    if (in_ && !bracket) in_.putback(c);
    for (int i = 0; i < count && in_; ++i) {
      in_ >> values[i];
      if (!bracket) continue;
      in_ >> c;
      if (c == ')') break;
      if (c != ',' || i + 1 == count) in_.setstate(std::ios::failbit);
    }
    if (in_) std::copy_n(values, count, target);
    return !in_.fail();
  }
  bool read_pair(double& a, double& b) {
    double values[2] = {a, b};
    const bool good = read_list(values, 2);
    a = values[0];
    b = values[1];
    return good;
  }
  bool read_triple(double (&values)[3]) { return read_list(values, 3); }

 private:
  std::istringstream in_;
};

// Reads as the letters of `script` say (word, double, integer, boolean, character, skip a line,
// pair, triple) and notes all that can be seen: results, targets, state.
template <class Reader>
std::string read_protocol(Reader& in, std::string_view script) {
  std::ostringstream out;
  out << std::hexfloat;
  for (const char operation : script) {
    std::string word = "old";
    double v[3] = {7.0, 8.0, 9.0};
    std::int32_t integer = 7;
    bool flag = true;
    char c = '?';
    if (operation == 's' && !in.failed()) in.skip_line();
    const bool good = operation == 's'   ? !in.failed()
                      : operation == 'w' ? in.read_word(word)
                      : operation == 'd' ? in.read(v[0])
                      : operation == 'i' ? in.read(integer)
                      : operation == 'b' ? in.read(flag)
                      : operation == 'c' ? in.read_char(c)
                      : operation == 'p' ? in.read_pair(v[0], v[1])
                                         : in.read_triple(v);
    out << operation << good << in.failed() << ' ' << word << ' ' << v[0] << ' ' << v[1] << ' '
        << v[2] << ' ' << integer << flag << c << '\n';
  }
  return out.str();
}

// What printf writes; the format's notations in the order of their codes.
inline std::string printed_number(double value, NumberFormat format) {
  static constexpr const char* kPatterns[] = {"%*.*g",  "%*.*f",  "%*.*e",
                                              "%+*.*g", "%+*.*f", "%+*.*e"};
  std::array<char, 512> text;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const auto pattern = static_cast<std::size_t>(format.notation) + (format.show_plus ? 3 : 0);
  std::snprintf(text.data(), text.size(), kPatterns[pattern], format.width, format.precision,
                value);
#pragma GCC diagnostic pop
  return text.data();
}

// What our own formatter writes into the room that it asks for.
inline std::string written_number(double value, NumberFormat format) {
  std::string room(static_cast<std::size_t>(max_length(format)) + 1, '#');
  const char* const end = write_number(room.data(), value, format);
  if (room.back() != '#') return "longer than max_length";
  return room.substr(0, static_cast<std::size_t>(end - room.data()));
}

}  // namespace vorn::test
