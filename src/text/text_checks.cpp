#include "text/text_checks.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "text/blanks.h"
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

bool all_numbers(std::span<const std::string_view> words) {
  return std::all_of(words.begin(), words.end(), is_number);
}

// A line that a reader would take for the beginning of a record: a keyword with few words behind
// it, a role of a point, or numbers. Prose has long lines, and words between its numbers.
bool looks_like_a_record(std::span<const std::string_view> words,
                         std::span<const std::string_view> next) {
  constexpr std::size_t kMostWords = 3;
  constexpr std::size_t kMostWithNumbers = 10;
  constexpr std::ptrdiff_t kFewestNumbers = 3;
  if (words[0] == kEndWord || words[0] == "-1") return false;
  if (lookup_keyword(words[0]) != Keyword::none) {
    const bool hyphenated = words[0].find('-') != std::string_view::npos;
    if (words.size() <= kMostWords) return words.size() > 1 || hyphenated;
    // The head of an object: its numbers stand behind its names, or in the next line.
    if (words.size() > kMostWithNumbers) return false;
    return is_number(words.back()) || (!next.empty() && all_numbers(next));
  }
  if (words.size() == 3 && (words[1] == "co" || words[1] == "ch") &&
      words[2].find_first_not_of("xyz") == std::string_view::npos) {
    return true;
  }
  return all_numbers(words.subspan(1)) &&
         std::count_if(words.begin(), words.end(), is_number) >= kFewestNumbers;
}

// The words of a line, at most one more than `limit` of them.
std::size_t split_line(std::string_view line, std::size_t limit,
                       std::vector<std::string_view>& words) {
  words.clear();
  // Searches for one of several characters are calls for each character of the line.
  std::size_t at = 0;
  while (words.size() <= limit) {
    while (at < line.size() && is_blank(line[at])) ++at;
    if (at == line.size()) break;
    const std::size_t begin = at;
    while (at < line.size() && !is_blank(line[at])) ++at;
    words.push_back(line.substr(begin, at - begin));
  }
  return words.size();
}

// Compares the lines of a list with the records that they hold.
class LineCheck {
 public:
  LineCheck(TokenReader& in, std::size_t words_per_record, std::string_view noun)
      : in_(in), words_per_record_(words_per_record), noun_(noun) {}

  // Looks at the next line; false where nothing more can be said, or enough was.
  bool look_at(std::string_view line, const std::function<bool(std::string_view)>& begins_list) {
    const std::size_t count = split_line(line, 2 * words_per_record_, words_);
    if (count == 0) return true;
    const bool ends = words_[0] == kEndWord || words_[0] == "-1";
    const bool fits = count == words_per_record_ || ends;
    if (surplus_count_ > 0) {
      const bool alike = lines_are_records_ ? fits : count == surplus_count_;
      return alike && report_surplus();
    }
    if (pending_ > 0 && (fits ? lines_are_records_ || !ends : same_shape(count))) {
      return report_missing();
    }
    if (ends || line.find('(') != std::string_view::npos) return false;
    if (pending_ > 0) {
      if (pending_ + count > words_per_record_) return false;
      pending_ += count;
      if (pending_ == words_per_record_) pending_ = 0;
    } else if (count == words_per_record_) {
      lines_are_records_ = true;
    } else if (count == 2 && begins_list(words_[0]) && is_number(words_[1])) {
      in_.report(FindingCode::end_missing, words_[0],
                 "the list before " + quoted(words_[0]) + " has no end word",
                 "end it with \"-1\" or \"stop-dep\"");
      in_.mark_broken(words_[0]);
      return false;
    } else if (count > words_per_record_) {
      surplus_ = words_[words_per_record_];
      surplus_record_ = words_[0];
      surplus_count_ = count;
      return count < 2 * words_per_record_;
    } else {
      // What is no number is named as that when the record is read.
      if (!std::all_of(words_.begin() + 1, words_.end(), is_number)) return false;
      short_record_ = words_[0];
      pending_ = first_pending_ = count;
    }
    return true;
  }

 private:
  // Whether all lines lack the same number of words, since two of them are more than a record.
  bool same_shape(std::size_t count) const {
    return !lines_are_records_ && count == first_pending_ && 2 * count > words_per_record_;
  }
  bool report_missing() {
    in_.report(FindingCode::value_missing, words_[0],
               "a value of " + std::string(noun_) + ' ' + printable(short_record_) +
                   " is missing before " + quoted(words_[0]));
    in_.mark_broken(short_record_);
    return false;
  }
  bool report_surplus() {
    in_.report(FindingCode::number_expected, surplus_,
               "the line of " + std::string(noun_) + ' ' + printable(surplus_record_) +
                   " has one word too many: " + quoted(surplus_) +
                   " would be taken for the next identifier",
               "identifiers have no blanks; a record ends with its standard deviations");
    in_.mark_broken(surplus_record_);
    return false;
  }

  TokenReader& in_;
  std::size_t words_per_record_;
  std::string_view noun_;
  std::vector<std::string_view> words_;
  std::string_view short_record_;  // identifier of a record that goes on behind its line
  std::size_t pending_ = 0;        // words of that record
  std::size_t first_pending_ = 0;  // those of its first line
  std::string_view surplus_;       // the first word behind a whole record in one line
  std::string_view surplus_record_;
  std::size_t surplus_count_ = 0;  // words of that line
  bool lines_are_records_ = false;
};

}  // namespace

bool is_number(std::string_view word) {
  TokenReader in(word);
  double value = 0.0;
  return in.read(value) && in.rest().empty();
}

void report_broken_lines(TokenReader& in, std::size_t words_per_record, std::string_view noun,
                         const std::function<bool(std::string_view)>& begins_list) {
  if (!in.listens()) return;
  std::string_view text = in.rest();
  take_line(text);
  LineCheck check(in, words_per_record, noun);
  while (!text.empty() && check.look_at(take_line(text), begins_list)) {
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

void report_rest(TokenReader& in, const BeginsRecord& begins_record) {
  if (!in.listens()) return;
  in.begin_record({});
  std::string_view text = in.rest();
  while (!text.empty()) {
    const std::vector<std::string_view> words = words_of(take_line(text));
    if (words.empty()) continue;
    std::string_view behind = text;
    const std::vector<std::string_view> next = words_of(take_line(behind));
    if (!looks_like_a_record(words, next) && !(begins_record && begins_record(words))) continue;
    in.report(FindingCode::trailing_text, words[0],
              "this is not read: the file's last record ends before it",
              "look for an end word (\"stop-dep\") or a count that is too small");
    return;
  }
}

void report_few_numbers(TokenReader& in, std::size_t expected, std::string_view noun,
                        const std::function<bool(std::string_view)>& may_follow) {
  if (!in.listens()) return;
  TokenReader words(in.rest());
  std::string_view word;
  std::size_t numbers = 0;
  while (numbers < expected && words.read_word(word) && is_number(word)) ++numbers;
  if (words.failed() || numbers == expected || !may_follow(word)) return;
  in.report(FindingCode::value_missing, word,
            std::string(noun) + " have " + std::to_string(expected) + " numbers before " +
                quoted(word) + "; here are only " + std::to_string(numbers));
  if (in.goes_on()) in.fail();
}

}  // namespace vorn
