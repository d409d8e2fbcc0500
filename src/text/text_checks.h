#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string_view>

#include "text/token_reader.h"

namespace vorn {

// What can be said of a text as a whole, for findings.

// Whether all of a word is one number.
bool is_number(std::string_view word);

// Whether a file was saved as UTF-16, of which no word can be read; reported to the listener, which
// may be null.
bool report_utf16(std::string_view text, std::string_view file, FindingListener* listener);

// Characters that cannot be seen in what a reader has read: they make words that look alike
// differ. Lines that begin with "#" are passed over.
void report_invisible(TokenReader& in);

// Records, blocks or keywords behind the last thing that was read, in the lines behind it. Prose
// there is no finding. `begins_record`, which may be empty, knows more records by the words of
// their line.
using BeginsRecord = std::function<bool(std::span<const std::string_view>)>;
void report_rest(TokenReader& in, const BeginsRecord& begins_record = {});

// What is read next begins with `expected` numbers: reports the word behind them when they are
// fewer and the word is one that follows them. `noun` names what the numbers are, in the plural.
// A reader that goes on behind mistakes fails then.
void report_few_numbers(TokenReader& in, std::size_t expected, std::string_view noun,
                        const std::function<bool(std::string_view)>& may_follow);

// A list of records that stand on one line each, from the next line on: where a line has fewer
// words than the others, a value is missing, and everything behind it would be read one word too
// early; where it has more, everything behind it would be read too late; where a line of two words
// begins another list (`begins_list`, which gets its first word), the list has no end word. Lists
// whose records are not lines are passed over. `noun` names a record.
void report_broken_lines(TokenReader& in, std::size_t words_per_record, std::string_view noun,
                         const std::function<bool(std::string_view)>& begins_list);

}  // namespace vorn
