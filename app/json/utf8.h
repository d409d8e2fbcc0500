#pragma once

#include <string>
#include <string_view>

namespace vorn::app {

// Whether a text is well-formed UTF-8 (RFC 3629).
[[nodiscard]] bool is_utf8(std::string_view text);
// The same text in UTF-8; bytes that belong to no well-formed sequence are taken as Latin-1.
[[nodiscard]] std::string to_utf8(std::string_view text);

}  // namespace vorn::app
