#include "text/token_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

#include "text/keywords.h"
#include "text/unicode.h"

namespace vorn {
namespace {

constexpr bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Value of a number that is out of range: 0 when it is too small, otherwise the largest one.
// `text` is [digits][.digits][e[sign]digits] without a sign; the value is out of range by far more
// than the digits can hide, so the order of magnitude of the first significant digit decides.
double out_of_range_value(const char* text, const char* end, bool& overflow) {
  constexpr std::int64_t kHuge = 1'000'000'000;
  std::int64_t order = 0;  // decimal exponent behind the first significant digit
  bool significant = false;
  bool fraction = false;
  const char* p = text;
  for (; p != end && *p != 'e' && *p != 'E'; ++p) {
    if (*p == '.') {
      fraction = true;
      continue;
    }
    significant = significant || *p != '0';
    if (significant && !fraction) ++order;
    if (!significant && fraction) --order;
  }
  if (p != end) {
    ++p;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    std::int64_t exponent = 0;
    for (; p != end; ++p) {
      if (exponent < kHuge) exponent = exponent * 10 + (*p - '0');
    }
    order += negative ? -exponent : exponent;
  }
  overflow = order > 0;
  return overflow ? std::numeric_limits<double>::max() : 0.0;
}

// End of the characters that can continue a floating-point number; `pos` is behind its sign.
const char* scan_number(const char* pos, const char* end) {
  bool mantissa = false;
  bool point = false;
  while (pos != end) {
    if (is_digit(*pos)) {
      mantissa = true;
    } else if (*pos == '.' && !point) {
      point = true;
    } else {
      break;
    }
    ++pos;
  }
  if (pos == end || !mantissa || (*pos != 'e' && *pos != 'E')) return pos;
  ++pos;
  if (pos != end && (*pos == '+' || *pos == '-')) ++pos;
  while (pos != end && is_digit(*pos)) ++pos;
  return pos;
}

// Powers of ten that 64-bit floats hold exactly.
constexpr std::array<double, 23> kPowersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Plain decimals of at most 18 digits whose digits and scale are exact, by one rounded division;
// the common case in coordinate files (Clinger 1990). Null when the number needs the general
// conversion.
const char* scan_plain(const char* pos, const char* end, double& value) {
  std::uint64_t digits = 0;
  const char* const start = pos;
  while (pos != end && is_digit(*pos))
    digits = digits * 10 + static_cast<std::uint64_t>(*pos++ - '0');
  std::ptrdiff_t count = pos - start;
  std::ptrdiff_t decimals = 0;
  if (pos != end && *pos == '.') {
    const char* const fraction = ++pos;
    while (pos != end && is_digit(*pos)) {
      digits = digits * 10 + static_cast<std::uint64_t>(*pos++ - '0');
    }
    decimals = pos - fraction;
    count += decimals;
  }
  constexpr std::uint64_t kExact = std::uint64_t{1} << 53U;
  if (count == 0 || count > 18 || digits > kExact) return nullptr;
  if (pos != end && (*pos == '.' || *pos == 'e' || *pos == 'E')) return nullptr;
  value = static_cast<double>(digits) / kPowersOfTen[static_cast<std::size_t>(decimals)];
  return pos;
}

std::string in_parentheses(const std::string& text) {
  return text.empty() ? text : " (" + text + ')';
}

// Words that begin or end something cannot be meant as values.
bool is_structural(std::string_view word) { return lookup_keyword(word) != Keyword::none; }

// Advice about a word that stands where a number belongs.
std::string number_help(std::string_view word) {
  const bool digits = word.find_first_of("0123456789") != std::string_view::npos;
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

TokenReader::TokenReader(std::string_view text) noexcept
    : pos_(text.data()), end_(text.data() + text.size()), token_(pos_), begin_(pos_) {}

TokenReader::TokenReader(std::string_view text, std::string_view file, FindingListener* listener)
    : TokenReader(text) {
  listener_ = listener;
  file_ = file;
  if (listener != nullptr) listener->places.begin_file(printable(file));
}

bool TokenReader::begin() noexcept {
  if (at_end_ || failed_) {
    failed_ = true;
    return false;
  }
  while (pos_ != end_ && is_blank(*pos_)) ++pos_;
  token_ = pos_;
  if (pos_ == end_) {
    at_end_ = true;
    failed_ = true;
    return false;
  }
  return true;
}

bool TokenReader::begin(std::string_view what) {
  const bool failed_before = failed_;
  if (begin()) return true;
  if (!failed_before && listener_ != nullptr) report_missing(what);
  return false;
}

bool TokenReader::read_word(std::string_view& word) noexcept {
  if (!begin()) return false;
  const char* const start = pos_;
  while (pos_ != end_ && !is_blank(*pos_)) ++pos_;
  at_end_ = pos_ == end_;
  word = std::string_view(start, static_cast<std::size_t>(pos_ - start));
  return true;
}

bool TokenReader::read_word(std::string& word) {
  std::string_view view;
  if (!read_word(view)) return false;
  word.assign(view);
  return true;
}

bool TokenReader::need_word(std::string_view& word, std::string_view what) {
  if (!begin(what)) return false;
  const bool found = read_word(word);
  return word == kEndWord ? !misses_word(word, what) && found : found;
}

bool TokenReader::need_name(std::string& name, std::string_view what) {
  std::string_view word;
  if (!need_word(word, what)) return false;
  // Keywords without a hyphen may be meant as names.
  const bool keyword = word != kEndWord && word.find('-') != std::string_view::npos;
  if (keyword && is_structural(word) && misses_word(word, what)) return false;
  name.assign(word);
  return true;
}

bool TokenReader::misses_word(std::string_view found, std::string_view what) {
  if (listener_ == nullptr) return false;
  report(FindingCode::value_missing, found,
         "expected " + describe(subject_, what) + ", found " + quoted(found), {}, what);
  failed_ = failed_ || listener_->goes_on;
  return listener_->goes_on;
}

void TokenReader::scan_double(double& value) noexcept {
  const bool negative = *pos_ == '-';
  if (negative || *pos_ == '+') ++pos_;
  const char* const start = pos_;
  double magnitude = 0.0;
  if (const char* const stop = scan_plain(start, end_, magnitude)) {
    pos_ = stop;
  } else {
    pos_ = scan_number(start, end_);
    const std::from_chars_result result = std::from_chars(start, pos_, magnitude);
    if (result.ptr != pos_ || result.ec == std::errc::invalid_argument) {
      magnitude = 0.0;
      failed_ = true;
    } else if (result.ec == std::errc::result_out_of_range) {
      magnitude = out_of_range_value(start, pos_, failed_);
    }
  }
  at_end_ = pos_ == end_;
  value = negative && !(failed_ && magnitude == 0.0) ? -magnitude : magnitude;
}

bool TokenReader::read(double& value, const Quantity& what) {
  if (!begin(what.name)) return false;
  scan_double(value);
  if (listener_ != nullptr) check_value(value, what, Kind::number);
  return !failed_;
}

bool TokenReader::read_digits(std::int32_t& value) noexcept {
  const bool negative = *pos_ == '-';
  if (negative || *pos_ == '+') ++pos_;
  const std::int64_t limit = negative ? -std::int64_t{std::numeric_limits<std::int32_t>::min()}
                                      : std::numeric_limits<std::int32_t>::max();
  std::int64_t magnitude = 0;
  bool digits = false;
  bool overflow = false;
  for (; pos_ != end_ && is_digit(*pos_); ++pos_) {
    digits = true;
    magnitude = magnitude * 10 + (*pos_ - '0');
    if (magnitude > limit) {
      overflow = true;
      magnitude = limit;
    }
  }
  at_end_ = pos_ == end_;
  value = static_cast<std::int32_t>(negative ? -magnitude : magnitude);
  failed_ = overflow || !digits;
  return !failed_;
}

bool TokenReader::read(std::int32_t& value, const Quantity& what) {
  if (!begin(what.name)) return false;
  read_digits(value);
  if (listener_ != nullptr) check_value(value, what, Kind::integer);
  return !failed_;
}

bool TokenReader::read(bool& value, const Quantity& what) {
  std::int32_t number = value ? 1 : 0;
  if (begin(what.name)) {
    if (read_digits(number) && number != 0 && number != 1) failed_ = true;
    if (listener_ != nullptr) check_value(number, what, Kind::flag);
  }
  value = number != 0;
  return !failed_;
}

bool TokenReader::read_char(char& c) noexcept {
  if (!begin()) return false;
  c = *pos_++;
  return true;
}

bool TokenReader::peek_char(char& c) noexcept {
  if (!begin()) return false;
  c = *pos_;
  return true;
}

bool TokenReader::only_blanks_left() const noexcept {
  const char* pos = pos_;
  while (pos != end_ && is_blank(*pos)) ++pos;
  return pos == end_;
}

void TokenReader::tell_progress(const std::function<void(std::size_t)>& tell,
                                std::size_t step) noexcept {
  tell_ = &tell;
  step_ = step;
  set_mark();
}

void TokenReader::set_mark() noexcept {
  mark_ = static_cast<std::size_t>(end_ - pos_) > step_ ? pos_ + step_ : nullptr;
}

void TokenReader::pass_mark() {
  set_mark();
  (*tell_)(static_cast<std::size_t>(pos_ - begin_));
}

void TokenReader::skip_line() noexcept {
  while (pos_ != end_ && *pos_ != '\n') ++pos_;
  if (pos_ != end_) ++pos_;
}

void TokenReader::skip_rest() noexcept {
  pos_ = token_ = end_;
  at_end_ = failed_ = true;
}

bool TokenReader::read_pair(double& first, double& second, const Quantity (&what)[2]) {
  double values[3] = {0.0, 0.0, 0.0};
  if (!read_list(values, what, 2)) return false;
  first = values[0];
  second = values[1];
  return true;
}

bool TokenReader::read_triple(double (&values)[3], const Quantity (&what)[3]) {
  double read_values[3] = {0.0, 0.0, 0.0};
  if (!read_list(read_values, what, 3)) return false;
  for (int i = 0; i < 3; ++i) values[i] = read_values[i];
  return true;
}

bool TokenReader::read_list(double* values, const Quantity* what, int count) {
  if (!begin(what->name)) return false;
  if (*pos_ != '(') {
    for (int i = 0; i < count; ++i) {
      if (!read(values[i], what[i])) return false;
    }
    return true;
  }
  const char* const list = pos_++;
  char c = '\0';
  for (int i = 0; i < count; ++i) {
    if (!begin()) break;
    scan_double(values[i]);
    if (failed_) break;
    if (listener_ != nullptr) check_range(values[i], what[i]);
    if (!read_char(c)) break;
    if (c == ')') return true;
    if (c != ',') break;
  }
  failed_ = true;
  if (listener_ != nullptr) report_no_value(word_around(list), *what, Kind::list);
  return false;
}

// ---- findings ----------------------------------------------------------------------------------

std::string_view TokenReader::word_around(const char* at) const noexcept {
  const char* start = at;
  while (start != begin_ && !is_blank(start[-1])) --start;
  const char* stop = at;
  while (stop != end_ && !is_blank(*stop)) ++stop;
  return {start, static_cast<std::size_t>(stop - start)};
}

Place TokenReader::place_of(std::string_view word) const {
  const char* const at = word.data();
  if (counted_ == nullptr || at < counted_) {
    counted_ = line_start_ = begin_;
    line_ = 1;
  }
  while (const void* const found =
             at == counted_
                 ? nullptr
                 : std::memchr(counted_, '\n', static_cast<std::size_t>(at - counted_))) {
    counted_ = line_start_ = static_cast<const char*>(found) + 1;
    ++line_;
  }
  counted_ = at;
  const auto before = count_characters({line_start_, static_cast<std::size_t>(at - line_start_)});
  return {std::string(), line_, static_cast<std::int32_t>(before) + 1};
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
