// What a reader with a listener says about the words that it reads.

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "text/blanks.h"
#include "text/keywords.h"
#include "text/token_reader.h"
#include "text/unicode.h"

namespace vorn {
namespace {

std::string in_parentheses(const std::string& text) {
  return text.empty() ? text : " (" + text + ')';
}

// Words that begin or end something cannot be meant as values.
bool is_structural(std::string_view word) { return lookup_keyword(word) != Keyword::none; }

// Advice about a word that stands where a number belongs.
std::string number_help(std::string_view word) {
  const bool digits = word.find_first_of("0123456789") != std::string_view::npos;
  if (digits && word.find(';') != std::string_view::npos) {
    return "separate values by blanks, not by semicolons";
  }
  if (digits && word.find_first_not_of("+-0123456789,.eE") == std::string_view::npos &&
      word.find(',') != std::string_view::npos) {
    return "write decimal points, not commas";
  }
  if (digits && word.find_first_not_of("+-0123456789.dD") == std::string_view::npos &&
      word.find_first_of("dD") != std::string_view::npos) {
    return "write exponents with e, as in 1.5e-3";
  }
  return {};
}

}  // namespace

std::string describe(const Subject& subject, std::string_view parameter) {
  std::string text(parameter);
  const auto add = [&text](std::string_view words) {
    if (words.empty()) return;
    if (!text.empty()) text += " of ";
    text += words;
  };
  std::string noun(subject.type == "image-point" || subject.type == "object-point" ? "point"
                                                                                   : subject.type);
  std::replace(noun.begin(), noun.end(), '-', ' ');
  add(noun);
  if (!subject.id.empty()) text += ' ' + printable(subject.id);
  if (!subject.image.empty()) text += " in image " + printable(subject.image);
  return text;
}

std::string_view TokenReader::word_around(const char* at) const noexcept {
  const char* start = at;
  while (start != begin_ && !is_blank(start[-1])) --start;
  const char* stop = at;
  while (stop != end_ && !is_blank(*stop)) ++stop;
  return {start, static_cast<std::size_t>(stop - start)};
}

Place TokenReader::place_of(std::string_view word) const {
  const char* const at = word.data();
  if (counted_ == nullptr) counted_ = begin_;
  const auto characters = [](const char* from, const char* to) {
    return static_cast<std::int32_t>(count_characters({from, static_cast<std::size_t>(to - from)}));
  };
  const auto lines =
      static_cast<std::int32_t>(std::count(std::min(at, counted_), std::max(at, counted_), '\n'));
  if (lines > 0) {
    const char* start = at;
    while (start != begin_ && start[-1] != '\n') --start;
    line_ += at < counted_ ? -lines : lines;
    column_ = 1 + characters(start, at);
  } else {
    column_ += at < counted_ ? -characters(at, counted_) : characters(counted_, at);
  }
  counted_ = at;
  return {std::string(), line_, column_};
}

void TokenReader::begin_object(std::string_view type, const void* object) {
  if (listener_ == nullptr) return;
  begin_record({type, last_word()});
  remember(object, subject_.id);
}

void TokenReader::remember(const void* object, std::string_view word, std::size_t number) {
  if (listener_ == nullptr) return;
  const Place place = place_of(word);
  listener_->places.put(object, place.line, place.column, number);
}

void TokenReader::report(FindingCode code, std::string_view word, std::string message,
                         std::string help, std::string_view parameter) {
  if (listener_ == nullptr || (reported_ != nullptr && word.data() < reported_)) return;
  reported_ = word.data() + word.size();
  if (has_invisible(word)) {
    report_invisible(word);
  } else {
    add_finding(code, word, std::move(message), std::move(help), parameter);
  }
}

void TokenReader::report_invisible(std::string_view word) {
  if (std::find(invisible_.begin(), invisible_.end(), word.data()) != invisible_.end()) return;
  // So many are counted only; there is no need to remember them.
  if (invisible_.size() <= FindingList::kMaxAlike) invisible_.push_back(word.data());
  std::string shown;
  std::string names;
  for (std::size_t at = 0; at < word.size();) {
    const Character character = character_at(word, at);
    if (is_invisible(character.code)) {
      shown += "\xe2\x90\xa3";  // an open box
      names = code_point_name(character.code);
    } else {
      shown += word.substr(at, character.size);
    }
    at += character.size;
  }
  add_finding(FindingCode::encoding, word,
              quoted(shown) + " contains a character that cannot be seen (" + names + ')',
              "save the file as plain text, with ordinary blanks and without a byte-order mark",
              {});
}

void TokenReader::add_finding(FindingCode code, std::string_view word, std::string message,
                              std::string help, std::string_view parameter) {
  const Place place = place_of(word);
  listener_->add({code,
                  printable(file_),
                  place.line,
                  place.column,
                  {std::string(subject_.type), printable(subject_.id), printable(subject_.image),
                   std::string(parameter)},
                  std::move(message),
                  std::move(help)});
}

std::string_view TokenReader::end_of_words() const noexcept {
  const char* stop = end_;
  while (stop != begin_ && is_blank(stop[-1])) --stop;
  return {stop, 0};
}

void TokenReader::report_missing(std::string_view what) {
  report(FindingCode::value_missing, end_of_words(),
         "the file ends where " +
             (what.empty() ? std::string("a value") : describe(subject_, what)) + " is expected",
         {}, what);
}

void TokenReader::report_no_value(std::string_view word, const Quantity& what, Kind kind) {
  constexpr std::array<std::string_view, 4> kKinds = {"a number", "a whole number", "0 or 1",
                                                      "numbers in the form (a,b) or side by side"};
  const bool missing = is_structural(word);
  std::string message = "expected ";
  message += kKinds[static_cast<std::size_t>(kind)];
  message += in_parentheses(describe(subject_, what.name)) + ", found " + quoted(word);
  report(missing ? FindingCode::value_missing : FindingCode::number_expected, word,
         std::move(message), number_help(word), what.name);
}

void TokenReader::pass_over_number() noexcept {
  if (!goes_on()) return;
  passed_over_ = true;
  const std::string_view word = word_around(token_);
  const std::size_t digit = word.find_first_of("0123456789");
  if (digit > 1 || (digit == 1 && word.find_first_of("+-.") != 0)) return;
  pos_ = word.data() + word.size();
  at_end_ = pos_ == end_;
  failed_ = false;
}

bool TokenReader::resume(std::string_view record,
                         const std::function<bool(std::string_view)>& begins_record) {
  if (!goes_on()) return false;
  passed_over_ = true;
  if (record.data() == nullptr) return false;
  const char* from = failed_ ? token_ : pos_;
  // A record within this one that was not to be read may be the next one of this list.
  if (broken_ != nullptr && std::less<>()(record.data(), broken_) && broken_ < from) {
    from = std::exchange(broken_, nullptr);
  }
  const char* at = record.data();
  do {
    at = std::find(at, end_, '\n');
    while (at != end_ && is_blank(*at)) ++at;
    if (at == end_) return false;
  } while (at < from || !begins_record(word_around(at)));
  pos_ = token_ = at;
  at_end_ = failed_ = false;
  return true;
}

void TokenReader::check_range(double value, const Quantity& what) {
  const bool possible = what.range == Range::any || value > 0.0 ||
                        (what.range == Range::not_negative && value == 0.0);
  if (possible) return;
  report(FindingCode::value_range, word_around(token_),
         describe(subject_, what.name) + " is " + printable(word_around(token_)) + ", but must " +
             (what.range == Range::positive ? "be greater than 0" : "not be negative"),
         {}, what.name);
}

void TokenReader::check_value(double value, const Quantity& what, Kind kind) {
  const bool rest_of_word = !at_end_ && !is_blank(*pos_);
  if (failed_ || rest_of_word) {
    report_no_value(word_around(token_), what, kind);
    pass_over_number();
  } else {
    check_range(value, what);
  }
}

}  // namespace vorn
