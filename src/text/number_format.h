#pragma once

#include <cstdint>

namespace vorn {

// `shortest` has as few digits as give the same number when they are read again.
enum class Notation : std::uint8_t { general, fixed, scientific, shortest };

struct FormattedNumber;

// How one number is written: as the C library's "%g", "%f" and "%e" in the "C" locale,
// right-aligned with blanks in a field of at least `width` characters. `precision` is the number
// of decimals (fixed, scientific) or of significant digits (general).
struct NumberFormat {
  Notation notation = Notation::general;
  int precision = 6;
  int width = 0;
  bool show_plus = false;

  // A value bound to this format, for TextWriter: out << kCoordinate(x).
  constexpr FormattedNumber operator()(double value) const;
};

struct FormattedNumber {
  double value;
  NumberFormat format;
};

constexpr FormattedNumber NumberFormat::operator()(double value) const { return {value, *this}; }

constexpr NumberFormat general(int width = 0, int precision = 6) {
  return {Notation::general, precision, width, false};
}
constexpr NumberFormat fixed(int precision, int width = 0) {
  return {Notation::fixed, precision, width, false};
}
constexpr NumberFormat scientific(int precision, int width = 0) {
  return {Notation::scientific, precision, width, false};
}
// All digits that a value has, and no more: reading them gives the value again.
constexpr NumberFormat shortest(int width = 0) { return {Notation::shortest, 0, width, false}; }
// The same format with an explicit sign on numbers that are not negative.
constexpr NumberFormat with_plus(NumberFormat format) {
  format.show_plus = true;
  return format;
}

// Room that write_number may need for any value of the format.
constexpr int max_length(NumberFormat format) {
  const int digits = (format.notation == Notation::fixed ? 330 : 32) + format.precision;
  return digits > format.width ? digits : format.width;
}

// Writes the value at `out`, which has room for max_length(format) characters, without a
// terminating zero; returns the end. Digits are the correctly rounded ones of the exact value,
// the exponent has at least two digits; values that are not finite print as "inf", "nan" or "-nan".
char* write_number(char* out, double value, NumberFormat format) noexcept;

}  // namespace vorn
