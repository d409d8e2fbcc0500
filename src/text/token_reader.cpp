#include "text/token_reader.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <string>
#include <system_error>

#include "text/blanks.h"
#include "text/keywords.h"

namespace vorn {
namespace {

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
  while (pos != end && is_digit(*pos)) {
    digits = digits * 10 + static_cast<std::uint64_t>(*pos++ - '0');
  }
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

}  // namespace

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
  if (keyword && lookup_keyword(word) != Keyword::none && misses_word(word, what)) return false;
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

void TokenReader::pass(std::string_view word) noexcept {
  token_ = word.data();
  pos_ = token_ + word.size();
  at_end_ = pos_ == end_;
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

}  // namespace vorn
