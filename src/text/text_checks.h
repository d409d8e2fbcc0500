#pragma once

#include <string_view>

#include "text/token_reader.h"

namespace vorn {

// What can be said of a text as a whole, for findings.

// Whether a file was saved as UTF-16, of which no word can be read; reported to the listener, which
// may be null.
bool report_utf16(std::string_view text, std::string_view file, FindingListener* listener);

// Characters that cannot be seen in what a reader has read: they make words that look alike
// differ. Lines that begin with "#" are passed over.
void report_invisible(TokenReader& in);

// Records, blocks or keywords behind the last thing that was read. Prose there is no finding.
void report_rest(TokenReader& in);

}  // namespace vorn
