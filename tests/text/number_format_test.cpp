#include "text/number_format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "support/noise.h"

namespace vorn {
namespace {

std::string written(double value, NumberFormat format) {
  std::vector<char> room(static_cast<std::size_t>(max_length(format)) + 1, '#');
  const char* const end = write_number(room.data(), value, format);
  EXPECT_EQ(room.back(), '#') << "more than max_length";
  return {room.data(), static_cast<std::size_t>(end - room.data())};
}

std::string printed(double value, NumberFormat format) {
  constexpr char kConversions[] = {'g', 'f', 'e'};
  // Without "+" the blanks of the field are added below: "-" would put them behind the number.
  const char pattern[] = {'%', format.show_plus ? '+' : '-',
                          '*', '.',
                          '*', kConversions[static_cast<int>(format.notation)],
                          '\0'};
  char text[500];
  const int width = format.show_plus ? format.width : 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(text, sizeof text, pattern, width, format.precision, value);
#pragma GCC diagnostic pop
  std::string result(text, static_cast<std::size_t>(length));
  const auto wanted = static_cast<std::size_t>(format.width);
  return result.size() < wanted ? std::string(wanted - result.size(), ' ') + result : result;
}

void expect_like_printf(double value) {
  for (const Notation notation : {Notation::general, Notation::fixed, Notation::scientific}) {
    for (int precision = 0; precision <= 13; ++precision) {
      const NumberFormat format{notation, precision, (precision * 7) % 20, precision % 3 == 1};
      ASSERT_EQ(written(value, format), printed(value, format))
          << "precision " << precision << ", notation " << static_cast<int>(notation);
    }
  }
  for (const NumberFormat format : {scientific(15, 23), general(0, 17), fixed(25), fixed(0, 60)}) {
    ASSERT_EQ(written(value, format), printed(value, format));
  }
}

TEST(NumberFormat, EqualsPrintfAtEdges) {
  using Limits = std::numeric_limits<double>;
  for (const double value : {0.0,
                             0.5,
                             1.5,
                             2.5,
                             0.125,
                             0.375,
                             0.0005,
                             0.00049999999999999999,
                             0.05,
                             1e-5,
                             9.9999995,
                             999999.5,
                             0.99999999999995,
                             1.0,
                             9.5,
                             10.0,
                             99.995,
                             1e5,
                             1e6,
                             123456789.5,
                             1e15,
                             1e16,
                             1e17,
                             9007199254740993.0,
                             9223372036854.775807,
                             9223372036854775807.0,
                             9.3e18,
                             1.8e19,
                             1e22,
                             1e23,
                             1e100,
                             Limits::max(),
                             Limits::min(),
                             Limits::denorm_min(),
                             2.2e-320,
                             1e-30,
                             1e31,
                             1e-31,
                             Limits::infinity(),
                             Limits::quiet_NaN(),
                             3.141592653589793,
                             1048575.9999999999}) {
    expect_like_printf(value);
    expect_like_printf(-value);
  }
}

TEST(NumberFormat, EqualsPrintfForRandomNumbers) {
  test::Noise noise(2);
  for (int i = 0; i < 1500; ++i) {
    expect_like_printf(std::bit_cast<double>(noise.bits()));
    expect_like_printf(noise.normal() * std::pow(10.0, noise.uniform(-14.0, 14.0)));
    // Ties: multiples of powers of two.
    expect_like_printf(std::ldexp(std::round(noise.uniform(-5000.0, 5000.0)), -i % 12));
  }
}

}  // namespace
}  // namespace vorn
