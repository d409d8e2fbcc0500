#include "text/number_format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <vector>

#include "support/noise.h"
#include "support/text_reference.h"

namespace vorn {
namespace {

void expect_like_printf(double value) {
  std::vector<NumberFormat> formats = {scientific(15, 23), general(0, 17), fixed(25), fixed(0, 60)};
  for (const Notation notation : {Notation::general, Notation::fixed, Notation::scientific}) {
    for (int precision = 0; precision <= 13; ++precision) {
      formats.push_back({notation, precision, (precision * 7) % 20, precision % 3 == 1});
    }
  }
  for (const NumberFormat format : formats) {
    ASSERT_EQ(test::written_number(value, format), test::printed_number(value, format))
        << "precision " << format.precision << ", notation " << static_cast<int>(format.notation);
  }
}

TEST(NumberFormat, EqualsPrintf) {
  using Limits = std::numeric_limits<double>;
  std::istringstream edges(
      "0 0.5 1.5 2.5 0.125 0.375 0.0005 0.05 1e-5 9.9999995 999999.5 0.99999999999995 1 9.5 10 "
      "99.995 1e5 1e6 123456789.5 1e15 1e16 1e17 9007199254740993 9223372036854.775807 "
      "9223372036854775807 9.3e18 1.8e19 1e22 1e23 1e100 1e-30 1e31 1e-31 3.141592653589793 "
      "1048575.9999999999");
  std::vector<double> values = {Limits::max(), Limits::min(), Limits::denorm_min(),
                                Limits::infinity(), Limits::quiet_NaN()};
  for (double value = 0.0; edges >> value;) values.push_back(value);
  for (const double value : values) {
    expect_like_printf(value);
    expect_like_printf(-value);
  }
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
