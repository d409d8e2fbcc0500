#include "text/unicode.h"

namespace vorn {
namespace {

std::uint32_t byte_at(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

// Length of the UTF-8 sequence that a byte begins; 0 for a byte that begins none.
std::size_t sequence_length(std::uint32_t first) {
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first < 0xe0) return 2;
  if (first >= 0xe0 && first < 0xf0) return 3;
  if (first >= 0xf0 && first < 0xf5) return 4;
  return 0;
}

}  // namespace

Character character_at(std::string_view text, std::size_t at) {
  const std::uint32_t first = byte_at(text, at);
  const std::size_t length = sequence_length(first);
  const Character latin1{first, 1};
  if (length <= 1 || at + length > text.size()) return latin1;
  std::uint32_t code = first & (0xffU >> (length + 1));
  for (std::size_t k = 1; k < length; ++k) {
    const std::uint32_t next = byte_at(text, at + k);
    if ((next & 0xc0U) != 0x80) return latin1;
    code = code << 6U | (next & 0x3fU);
  }
  // Overlong forms, halves of surrogate pairs and what lies beyond the last plane are no UTF-8.
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  if (overlong || (code >= 0xd800 && code < 0xe000) || code > 0x10ffff) return latin1;
  return {code, length};
}

bool is_utf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const Character character = character_at(text, at);
    if (character.size == 1 && character.code >= 0x80) return false;
    at += character.size;
  }
  return true;
}

std::string to_utf8(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = character_at(text, at);
    append_utf8(result, character.code);
    at += character.size;
  }
  return result;
}

void append_utf8(std::string& text, std::uint32_t code) {
  const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xc0U | code >> 6U);
    put(0x80U | (code & 0x3fU));
  } else if (code < 0x10000) {
    put(0xe0U | code >> 12U);
    put(0x80U | (code >> 6U & 0x3fU));
    put(0x80U | (code & 0x3fU));
  } else {
    put(0xf0U | code >> 18U);
    put(0x80U | (code >> 12U & 0x3fU));
    put(0x80U | (code >> 6U & 0x3fU));
    put(0x80U | (code & 0x3fU));
  }
}

std::size_t count_characters(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); ++count) at += character_at(text, at).size;
  return count;
}

bool is_invisible(std::uint32_t code) {
  return code == 0 || code == 0xa0 || code == 0xad || code == 0x1680 ||
         (code >= 0x2000 && code <= 0x200f) || (code >= 0x2028 && code <= 0x202f) ||
         (code >= 0x205f && code <= 0x2064) || code == 0x3000 || code == 0xfeff;
}

std::string code_point_name(std::uint32_t code) {
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  std::string name = "U+";
  for (int shift = code > 0xffff ? 20 : 12; shift >= 0; shift -= 4) {
    name += kHexDigits[code >> static_cast<unsigned>(shift) & 15U];
  }
  return name;
}

bool has_invisible(std::string_view word) {
  for (std::size_t at = 0; at < word.size();) {
    const Character character = character_at(word, at);
    if (is_invisible(character.code)) return true;
    at += character.size;
  }
  return false;
}

}  // namespace vorn
