#pragma once

namespace vorn {

// Whether a character separates words: a blank, tab, line feed, vertical tab, form feed or carriage
// return, whatever the locale.
constexpr bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace vorn
