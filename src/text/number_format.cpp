#include "text/number_format.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace vorn {
namespace {

// Moves the text [out, end) to the right end of a field of `width` characters and fills with
// blanks.
char* align_right(char* out, char* end, int width) {
  const std::ptrdiff_t length = end - out;
  if (length >= width) return end;
  const auto pad = static_cast<std::size_t>(width - length);
  std::memmove(out + pad, out, static_cast<std::size_t>(length));
  std::memset(out, ' ', pad);
  return end + pad;
}

#ifdef __SIZEOF_INT128__
__extension__ using UInt128 = unsigned __int128;

constexpr int kMaxDecimals = 12;
constexpr std::array<std::uint64_t, kMaxDecimals + 1> kScale = {1,
                                                                10,
                                                                100,
                                                                1'000,
                                                                10'000,
                                                                100'000,
                                                                1'000'000,
                                                                10'000'000,
                                                                100'000'000,
                                                                1'000'000'000,
                                                                10'000'000'000,
                                                                100'000'000'000,
                                                                1'000'000'000'000};

// |value| x 10^decimals, rounded half to even from the exact value, as one integer. False when it
// does not fit. A 64-bit float is m x 2^e with integers m < 2^53 and e, so the product is exact in
// 128 bits.
bool scaled_integer(double value, int decimals, std::uint64_t& result) {
  const auto bits = std::bit_cast<std::uint64_t>(value) & ~(std::uint64_t{1} << 63U);
  const auto biased = static_cast<int>(bits >> 52U);
  std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52U) - 1);
  if (biased == 0x7FF) return false;
  if (biased != 0) mantissa |= std::uint64_t{1} << 52U;
  const int exponent = (biased == 0 ? 1 : biased) - 1075;
  if (exponent > 10) return false;
  const UInt128 product = UInt128{mantissa} * kScale[static_cast<std::size_t>(decimals)];
  UInt128 quotient = 0;
  if (exponent >= 0) {
    quotient = product << static_cast<unsigned>(exponent);
  } else if (exponent > -128) {
    const auto shift = static_cast<unsigned>(-exponent);
    quotient = product >> shift;
    const UInt128 rest = product - (quotient << shift);
    const UInt128 half = UInt128{1} << (shift - 1);
    if (rest > half || (rest == half && (quotient & 1U) != 0)) ++quotient;
  }
  if ((quotient >> 63U) != 0) return false;
  result = static_cast<std::uint64_t>(quotient);
  return true;
}

// Writes a value of few decimals in fixed notation. Null when the general conversion is needed.
char* write_fixed(char* out, double value, NumberFormat format) {
  std::uint64_t digits = 0;
  if (format.precision > kMaxDecimals || !scaled_integer(value, format.precision, digits)) {
    return nullptr;
  }
  std::array<char, 40> text;
  char* const end = text.data() + text.size();
  char* begin = end;
  for (int i = 0; i < format.precision; ++i) {
    *--begin = static_cast<char>('0' + digits % 10);
    digits /= 10;
  }
  if (format.precision > 0) *--begin = '.';
  do {
    *--begin = static_cast<char>('0' + digits % 10);
    digits /= 10;
  } while (digits != 0);
  if (std::signbit(value)) {
    *--begin = '-';
  } else if (format.show_plus) {
    *--begin = '+';
  }
  const auto length = static_cast<std::size_t>(end - begin);
  const auto width = static_cast<std::size_t>(format.width);
  if (length < width) {
    std::memset(out, ' ', width - length);
    out += width - length;
  }
  std::memcpy(out, begin, length);
  return out + length;
}
#else
char* write_fixed(char*, double, NumberFormat) { return nullptr; }
#endif

}  // namespace

char* write_number(char* out, double value, NumberFormat format) noexcept {
  std::chars_format notation = std::chars_format::general;
  if (format.notation == Notation::fixed) {
    if (char* const end = write_fixed(out, value, format)) return end;
    notation = std::chars_format::fixed;
  } else if (format.notation == Notation::scientific) {
    notation = std::chars_format::scientific;
  }
  char* start = out;
  if (format.show_plus && !std::signbit(value)) *start++ = '+';
  char* const limit = out + max_length(format);
  char* const end = format.notation == Notation::shortest
                        ? std::to_chars(start, limit, value).ptr
                        : std::to_chars(start, limit, value, notation, format.precision).ptr;
  return align_right(out, end, format.width);
}

}  // namespace vorn
