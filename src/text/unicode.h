#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorn {

// One character of a text: UTF-8, or where the bytes are no UTF-8, one byte as Latin-1 has it.
struct Character {
  std::uint32_t code;  // code point
  std::size_t size;    // bytes
};
Character character_at(std::string_view text, std::size_t at);

// Whether a text is well-formed UTF-8 (RFC 3629).
[[nodiscard]] bool is_utf8(std::string_view text);
// The same text in UTF-8; bytes that belong to no well-formed sequence are taken as Latin-1.
[[nodiscard]] std::string to_utf8(std::string_view text);

void append_utf8(std::string& text, std::uint32_t code);

// Number of characters of a text.
std::size_t count_characters(std::string_view text);

// Whether a character separates words for the eye without being a blank, or is not seen at all:
// NUL, no-break and other wide or zero-width blanks, the byte-order mark.
bool is_invisible(std::uint32_t code);
// "U+00A0" and so on.
std::string code_point_name(std::uint32_t code);
// Whether a word contains such a character.
bool has_invisible(std::string_view word);

}  // namespace vorn
