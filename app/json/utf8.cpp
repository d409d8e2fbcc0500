#include "app/json/utf8.h"

#include <algorithm>
#include <cstddef>

namespace vorn::app {
namespace {

unsigned char byte_at(std::string_view text, std::size_t i) {
  return static_cast<unsigned char>(text[i]);
}

// Length of the well-formed sequence that a text begins with, 0 where there is none (RFC 3629,
// table of section 4).
std::size_t sequence_length(std::string_view text) {
  const unsigned char lead = byte_at(text, 0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte_at(text, i) & 0xC0) != 0x80) return 0;
  }
  const unsigned char second = byte_at(text, 1);
  const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  const bool surrogate = lead == 0xED && second > 0x9F;
  const bool beyond = lead == 0xF4 && second > 0x8F;
  return overlong || surrogate || beyond ? 0 : length;
}

}  // namespace

bool is_utf8(std::string_view text) {
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (std::all_of(text.begin(), text.end(), is_ascii)) return true;
  while (!text.empty()) {
    const std::size_t length = sequence_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string to_utf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = sequence_length(text);
    if (length > 0) {
      result += text.substr(0, length);
      text.remove_prefix(length);
      continue;
    }
    const unsigned char latin1 = byte_at(text, 0);
    result += static_cast<char>(0xC0 | (latin1 >> 6));
    result += static_cast<char>(0x80 | (latin1 & 0x3F));
    text.remove_prefix(1);
  }
  return result;
}

}  // namespace vorn::app
