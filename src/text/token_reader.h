#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorn {

// Reads whitespace-separated tokens from a text in memory with the semantics of the standard
// library's formatted extraction in the "C" locale, but independent of the process's locale.
//
// State. Like a stream, a reader is good, at its end, or failed. Once failed it stays failed: every
// later read returns false and leaves its target alone. A word or number that touches the end
// of the text sets the end state, so that the next read fails.
//
// Numbers are taken character by character as long as they can continue a number: "1.5abc" reads
// 1.5 and leaves "abc", an integer "3.7" reads 3 and leaves ".7". If characters were there but form
// no number ("abc", "1e", "-"), the target becomes 0 and the reader fails; on overflow it becomes
// the largest value of its sign and the reader fails. "inf", "nan" and hexadecimal text are no
// numbers.
class TokenReader {
 public:
  // The text must outlive the reader.
  explicit TokenReader(std::string_view text) noexcept;

  bool failed() const noexcept { return failed_; }
  // False when a read has failed; end of text alone does not count.
  bool ok() const noexcept { return !failed_; }
  // Puts the reader into the failed state.
  void fail() noexcept { failed_ = true; }

  // Next run of non-blank characters. The view points into the text.
  bool read_word(std::string_view& word) noexcept;
  bool read_word(std::string& word);
  bool read(double& value) noexcept;
  bool read(std::int32_t& value) noexcept;
  // A boolean number: 0 is false, 1 is true; any other integer stores true and fails.
  bool read(bool& value) noexcept;
  // Next non-blank character.
  bool read_char(char& c) noexcept;
  // Gives the last character read by read_char back.
  void put_back() noexcept;
  // Skips blanks; true when a character follows, which stays unread. False at the end of the text
  // (the reader is then failed, as a stream would be).
  bool peek_char(char& c) noexcept;
  // Skips blanks and reports whether anything is left, without changing the state.
  bool only_blanks_left() const noexcept;
  // Skips the rest of the line, its end included.
  void skip_line() noexcept;

  // A pair: "a b", "(a,b)" or "(a)" with second value 0. Stored only when read without failure.
  bool read_pair(double& first, double& second) noexcept;
  // A triple: "a b c", "(a,b,c)", or a shorter list in parentheses, filled with 0. Stored only
  // when read without failure.
  bool read_triple(double (&values)[3]) noexcept;

 private:
  // Starts a formatted read: fails unless the state is good, skips blanks, fails at the end.
  bool begin() noexcept;
  // `count` numbers, or a list of at most as many in parentheses.
  bool read_list(double* values, int count) noexcept;

  const char* pos_;
  const char* end_;
  bool at_end_ = false;
  bool failed_ = false;
};

}  // namespace vorn
