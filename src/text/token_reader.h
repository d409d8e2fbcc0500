#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "text/findings.h"

namespace vorn {

// Values that a number may have.
enum class Range : std::uint8_t { any, not_negative, positive };

// A value by its name in findings, and what it may be.
struct Quantity {
  std::string_view name;
  Range range = Range::any;
};

inline constexpr Quantity kNamelessPair[2] = {};
inline constexpr Quantity kNamelessTriple[3] = {};

// The object whose record is being read. Empty texts do not apply; the identifiers are words of the
// text that is read.
struct Subject {
  std::string_view type;
  std::string_view id = {};
  std::string_view image = {};
};

// "y of point 1004 in image P82"; empty when there is nothing to say.
std::string describe(const Subject& subject, std::string_view parameter = {});

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
//
// Findings. A reader that knows its file and somebody who listens reports each word that is no
// value, each value that cannot be, and where a value is missing. Reading itself stays the same,
// unless the listener wants readers to go on: then a word that was meant as a number ("0,5") is
// passed over, and `resume` finds the next record. The place of a word is found only when it is
// reported.
class TokenReader {
 public:
  // The text must outlive the reader.
  explicit TokenReader(std::string_view text) noexcept;
  // `file` is its name as findings show it. A null listener stands for nobody.
  TokenReader(std::string_view text, std::string_view file, FindingListener* listener);

  bool failed() const noexcept { return failed_; }
  // False when a read has failed; end of text alone does not count.
  bool ok() const noexcept { return !failed_; }
  // Puts the reader into the failed state.
  void fail() noexcept { failed_ = true; }

  // Next run of non-blank characters. The view points into the text.
  [[nodiscard]] bool read_word(std::string_view& word) noexcept;
  [[nodiscard]] bool read_word(std::string& word);
  // The same for a word that must follow; `what` names it.
  [[nodiscard]] bool need_word(std::string_view& word, std::string_view what);
  // The same for an identifier; the beginning of another record is none.
  [[nodiscard]] bool need_name(std::string& name, std::string_view what);
  bool read(double& value, const Quantity& what = {});
  bool read(std::int32_t& value, const Quantity& what = {});
  // A boolean number: 0 is false, 1 is true; any other integer stores true and fails.
  bool read(bool& value, const Quantity& what = {});
  // Next non-blank character.
  bool read_char(char& c) noexcept;
  // Skips blanks; true when a character follows, which stays unread. False at the end of the text
  // (the reader is then failed, as a stream would be).
  [[nodiscard]] bool peek_char(char& c) noexcept;
  // Skips blanks and reports whether anything is left, without changing the state.
  bool only_blanks_left() const noexcept;
  // Skips the rest of the line, its end included.
  void skip_line() noexcept;
  // Goes on behind a word further on, up to which another reader has read this text.
  void pass(std::string_view word) noexcept;
  // Skips all that is left; the reader is then failed, as at the end of the text.
  void skip_rest() noexcept;

  // A pair: "a b", "(a,b)" or "(a)" with second value 0. Stored only when read without failure.
  [[nodiscard]] bool read_pair(double& first, double& second,
                               const Quantity (&what)[2] = kNamelessPair);
  // A triple: "a b c", "(a,b,c)", or a shorter list in parentheses, filled with 0. Stored only
  // when read without failure.
  [[nodiscard]] bool read_triple(double (&values)[3], const Quantity (&what)[3] = kNamelessTriple);

  // ---- for whoever waits

  // From here on `tell(bytes)` is called with what was read, about every `step` bytes and only
  // where a record begins. It outlives the reader.
  void tell_progress(const std::function<void(std::size_t)>& tell, std::size_t step) noexcept;
  // A record begins.
  void note_progress() {
    if (mark_ != nullptr && pos_ >= mark_) pass_mark();
  }

  // ---- for findings

  bool listens() const noexcept { return listener_ != nullptr; }
  // Whether the listener wants readers to go on behind mistakes.
  bool goes_on() const noexcept { return listener_ != nullptr && listener_->goes_on; }
  std::string_view file() const noexcept { return file_; }
  FindingListener* listener() const noexcept { return listener_; }
  // Says what the words that follow belong to.
  void begin_record(const Subject& subject) noexcept { subject_ = subject; }
  // The same for an object whose identifier was read last; its place is remembered.
  void begin_object(std::string_view type, const void* object);
  const Subject& subject() const noexcept { return subject_; }
  // The number, word or pair read last: the start of the word it begins with.
  std::string_view last_word() const noexcept { return word_around(token_); }
  // What is left of the text.
  std::string_view rest() const noexcept { return {pos_, static_cast<std::size_t>(end_ - pos_)}; }
  // What was read, the running word included.
  std::string_view text_read() const noexcept {
    return {begin_, static_cast<std::size_t>(pos_ - begin_)};
  }
  // Where the text ends: behind its last word.
  std::string_view end_of_words() const noexcept;
  // Reports a word, which points into the text, unless it was reported already. With nobody who
  // listens, nothing happens. The object is the running record's; `parameter` may be empty.
  void report(FindingCode code, std::string_view word, std::string message, std::string help = {},
              std::string_view parameter = {});
  // Reports a word that contains characters that cannot be seen, unless it was reported before.
  void report_invisible(std::string_view word);
  // Behind a record that cannot be read: goes to the next line whose first word begins another one
  // (or ends the list), when the listener wants more and the record is not the last thing. False
  // when reading ends here.
  [[nodiscard]] bool resume(std::string_view record,
                            const std::function<bool(std::string_view)>& begins_record);
  // Says that the record that begins with this word is not to be read, and asks for it.
  void mark_broken(std::string_view record) noexcept { broken_ = record.data(); }
  bool is_broken(std::string_view record) const noexcept {
    return broken_ == record.data() && goes_on();
  }
  // As if `resume` had been called, where the record's words were passed over already.
  void pass_over_record() noexcept { passed_over_ = true; }
  // Whether something was passed over that could not be read.
  bool passed_over() const noexcept { return passed_over_; }
  // Remembers the place of a word as that of an object.
  void remember(const void* object, std::string_view word, std::size_t number = 0);
  // The text from the beginning of a word on.
  std::string_view text_from(std::string_view word) const noexcept {
    return {word.data(), static_cast<std::size_t>(end_ - word.data())};
  }
  // Line and column of a place in the text.
  Place place_of(std::string_view word) const;

 private:
  enum class Kind : std::uint8_t { number, integer, flag, list };

  void set_mark() noexcept;
  void pass_mark();

  // Starts a formatted read: fails unless the state is good, skips blanks, fails at the end.
  bool begin() noexcept;
  // The same for something that must follow.
  bool begin(std::string_view what);
  bool read_digits(std::int32_t& value) noexcept;
  // `count` numbers, or a list of at most as many in parentheses.
  bool read_list(double* values, const Quantity* what, int count);
  void scan_double(double& value) noexcept;

  // What a listener is told about the value just read, or about one that is missing.
  void check_value(double value, const Quantity& what, Kind kind);
  void check_range(double value, const Quantity& what);
  void pass_over_number() noexcept;
  void report_missing(std::string_view what);
  // Reports a word found in place of another one; true when the reader is to go on behind that.
  bool misses_word(std::string_view found, std::string_view what);
  void report_no_value(std::string_view word, const Quantity& what, Kind kind);
  void add_finding(FindingCode code, std::string_view word, std::string message, std::string help,
                   std::string_view parameter);
  std::string_view word_around(const char* at) const noexcept;

  const char* pos_;
  const char* end_;
  bool at_end_ = false;
  bool failed_ = false;
  const char* token_;  // where the running or last read began

  const char* mark_ = nullptr;  // where progress is told next; null: nowhere
  std::size_t step_ = 0;
  const std::function<void(std::size_t)>* tell_ = nullptr;

  const char* begin_;
  FindingListener* listener_ = nullptr;
  std::string_view file_;
  Subject subject_;
  const char* reported_ = nullptr;  // end of the last word reported
  bool passed_over_ = false;
  const char* broken_ = nullptr;
  std::vector<const char*> invisible_;  // words reported for characters that cannot be seen
  // The last place that was asked for, from which the next one is counted: all words of a file may
  // stand in one line.
  mutable const char* counted_ = nullptr;
  mutable std::int32_t line_ = 1;
  mutable std::int32_t column_ = 1;
};

}  // namespace vorn
