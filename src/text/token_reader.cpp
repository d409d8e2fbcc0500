#include "text/token_reader.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <system_error>

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

// Plain decimals of at most 19 digits whose digits and scale are exact, by one rounded division;
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

}  // namespace

TokenReader::TokenReader(std::string_view text) noexcept
    : pos_(text.data()), end_(text.data() + text.size()) {}

bool TokenReader::begin() noexcept {
  if (at_end_ || failed_) {
    failed_ = true;
    return false;
  }
  while (pos_ != end_ && is_blank(*pos_)) ++pos_;
  if (pos_ == end_) {
    at_end_ = true;
    failed_ = true;
    return false;
  }
  return true;
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

bool TokenReader::read(double& value) noexcept {
  if (!begin()) return false;
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
  return !failed_;
}

bool TokenReader::read(std::int32_t& value) noexcept {
  if (!begin()) return false;
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

bool TokenReader::read(bool& value) noexcept {
  std::int32_t number = value ? 1 : 0;
  const bool good = read(number);
  value = number != 0;
  if (good && number != 0 && number != 1) failed_ = true;
  return !failed_;
}

bool TokenReader::read_char(char& c) noexcept {
  if (!begin()) return false;
  c = *pos_++;
  return true;
}

void TokenReader::put_back() noexcept {
  --pos_;
  at_end_ = false;
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

void TokenReader::skip_line() noexcept {
  while (pos_ != end_ && *pos_ != '\n') ++pos_;
  if (pos_ != end_) ++pos_;
}

bool TokenReader::read_pair(double& first, double& second) noexcept {
  double values[3] = {0.0, 0.0, 0.0};
  if (!read_list(values, 2)) return false;
  first = values[0];
  second = values[1];
  return true;
}

bool TokenReader::read_triple(double (&values)[3]) noexcept {
  double read_values[3] = {0.0, 0.0, 0.0};
  if (!read_list(read_values, 3)) return false;
  for (int i = 0; i < 3; ++i) values[i] = read_values[i];
  return true;
}

bool TokenReader::read_list(double* values, int count) noexcept {
  char c = '\0';
  if (!peek_char(c)) return false;
  if (c != '(') {
    for (int i = 0; i < count; ++i) {
      if (!read(values[i])) return false;
    }
    return true;
  }
  read_char(c);
  for (int i = 0; i < count; ++i) {
    if (!read(values[i]) || !read_char(c)) return false;
    if (c == ')') return true;
    if (c != ',') break;
  }
  failed_ = true;
  return false;
}

}  // namespace vorn
