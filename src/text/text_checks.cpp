#include "text/text_checks.h"

#include <algorithm>
#include <string>
#include <vector>

#include "text/keywords.h"
#include "text/unicode.h"

namespace vorn {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

// The line at the beginning of a text, its end excluded; the text loses it.
std::string_view take_line(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::vector<std::string_view> words_of(std::string_view line) {
  std::vector<std::string_view> words;
  TokenReader in(line);
  for (std::string_view word; in.read_word(word);) words.push_back(word);
  return words;
}

bool is_number(std::string_view word) {
  TokenReader in(word);
  double value = 0.0;
  return in.read(value) && in.rest().empty();
}

// A line that a reader would take for the beginning of a record: a keyword with few words behind
// it, a role of a point, or numbers. Prose has long lines, and words between its numbers.
bool looks_like_a_record(std::string_view line) {
  constexpr std::size_t kMostWords = 3;
  constexpr std::ptrdiff_t kFewestNumbers = 3;
  const std::vector<std::string_view> words = words_of(line);
  if (words.empty() || words[0] == kEndWord || words[0] == "-1") return false;
  if (words.size() <= kMostWords && lookup_keyword(words[0]) != Keyword::none) {
    return words.size() > 1 || words[0].find('-') != std::string_view::npos;
  }
  if (words.size() == 3 && (words[1] == "co" || words[1] == "ch") &&
      words[2].find_first_not_of("xyz") == std::string_view::npos) {
    return true;
  }
  return std::all_of(words.begin() + 1, words.end(), is_number) &&
         std::count_if(words.begin(), words.end(), is_number) >= kFewestNumbers;
}

// The words of a line, at most one more than `limit` of them.
std::size_t split_line(std::string_view line, std::size_t limit,
                       std::vector<std::string_view>& words) {
  words.clear();
  for (std::size_t at = line.find_first_not_of(kBlanks);
       at != std::string_view::npos && words.size() <= limit;) {
    const std::size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
    words.push_back(line.substr(at, end - at));
    at = line.find_first_not_of(kBlanks, end);
  }
  return words.size();
}

}  // namespace

void report_broken_lines(TokenReader& in, std::size_t words_per_record, std::string_view noun,
                         const std::function<bool(std::string_view)>& begins_list) {
  if (!in.listens()) return;
  std::string_view text = in.rest();
  take_line(text);
  std::vector<std::string_view> words;
  std::string_view short_record;  // identifier of a record that goes on behind its line
  std::size_t pending = 0;        // words of that record
  bool lines_are_records = false;
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    const std::size_t count = split_line(line, words_per_record, words);
    if (count == 0) continue;
    const bool ends = words[0] == kEndWord || words[0] == "-1";
    if (pending > 0 && (count == words_per_record || (ends && lines_are_records))) {
      in.report(FindingCode::value_missing, words[0],
                "a value of " + std::string(noun) + ' ' + printable(short_record) +
                    " is missing before " + quoted(words[0]));
      return;
    }
    if (ends || pending + count > words_per_record || line.find('(') != std::string_view::npos) {
      return;
    }
    if (pending > 0) {
      pending += count;
      if (pending == words_per_record) pending = 0;
    } else if (count == words_per_record) {
      lines_are_records = true;
    } else if (count == 2 && begins_list(words[0]) && is_number(words[1])) {
      in.report(FindingCode::end_missing, words[0],
                "the list before " + quoted(words[0]) + " has no end word",
                "end it with \"-1\" or \"stop-dep\"");
      return;
    } else {
      short_record = words[0];
      pending = count;
    }
  }
}

bool report_utf16(std::string_view text, std::string_view file, FindingListener* listener) {
  const bool marked = text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff");
  const std::string_view head = text.substr(0, 200);
  const auto zeros = static_cast<std::size_t>(std::count(head.begin(), head.end(), '\0'));
  const bool every_other = head.size() >= 8 && zeros * 5 >= head.size() * 2;
  if (!marked && !every_other) return false;
  if (listener != nullptr) {
    listener->add({FindingCode::encoding,
                   printable(file),
                   1,
                   1,
                   {},
                   "the file is UTF-16, of which no word can be read",
                   "save it as plain text (UTF-8 without byte-order mark)"});
  }
  return true;
}

void report_invisible(TokenReader& in) {
  if (!in.listens()) return;
  std::string_view text = in.text_read();
  in.begin_record({});
  while (!text.empty()) {
    std::string_view line = take_line(text);
    // Most lines are plain: the characters meant are 0 or beyond ASCII.
    const auto odd = [](char c) { return c <= 0 || c == '\x7f'; };
    if (std::none_of(line.begin(), line.end(), odd)) continue;
    const std::size_t first = line.find_first_not_of(kBlanks);
    if (first != std::string_view::npos && line[first] == '#') continue;
    for (const std::string_view word : words_of(line)) {
      if (has_invisible(word)) in.report_invisible(word);
    }
  }
}

void report_rest(TokenReader& in) {
  if (!in.listens()) return;
  in.begin_record({});
  std::string_view text = in.rest();
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (!looks_like_a_record(line)) continue;
    in.report(FindingCode::trailing_text, words_of(line)[0],
              "this is not read: the file's last record ends before it",
              "look for an end word (\"stop-dep\") or a count that is too small");
    return;
  }
}

}  // namespace vorn
