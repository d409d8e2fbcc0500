#pragma once

#include <string_view>

namespace vorn {

// A text field of a file of comma-separated values, in quotes where it needs them (RFC 4180).
template <class Out>
void write_csv_field(Out& out, std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
    out << text;
    return;
  }
  out << '"';
  for (const char c : text) {
    if (c == '"') out << '"';
    out << c;
  }
  out << '"';
}

}  // namespace vorn
