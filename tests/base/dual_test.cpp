// Exact derivatives, against differences of the values.

#include "base/dual.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace vorn {
namespace {

// Every operation, each operand once a variable and once a constant.
constexpr auto kFormulas = [](auto x, auto y, auto visit) {
  using Number = decltype(x);
  const Number c(3.0);
  visit("x + y", x + y);
  visit("x - y", x - y);
  visit("x y", x * y);
  visit("x / y", x / y);
  visit("-x", -x);
  visit("x + 2", x + 2.0);
  visit("x - 2", x - 2.0);
  visit("2 x y^2", 2.0 * x * y * y);
  visit("x^2 2", x * x * 2.0);
  visit("c / y", c / y);
  visit("x / c", x / c);
  visit("1 / (x + y)^2", Number(1.0) / ((x + y) * (x + y)));
  Number sum = x * y;
  sum += x / y;
  visit("x y + x / y", sum);
};

TEST(Dual, DerivativesOfEveryOperation) {
  constexpr double kX = 0.7;
  constexpr double kY = -1.3;
  constexpr double kStep = 1e-6;
  const auto values_at = [](double x, double y) {
    std::vector<double> values;
    kFormulas(x, y, [&](const char*, double value) { values.push_back(value); });
    return values;
  };
  const std::vector<double> here = values_at(kX, kY);
  const std::vector<double> right = values_at(kX + kStep, kY);
  const std::vector<double> left = values_at(kX - kStep, kY);
  const std::vector<double> up = values_at(kX, kY + kStep);
  const std::vector<double> down = values_at(kX, kY - kStep);
  std::size_t i = 0;
  kFormulas(Dual<double>(kX, 1.0, 0.0), Dual<double>(kY, 0.0, 1.0),
            [&](const char* formula, const Dual<double>& dual) {
              EXPECT_DOUBLE_EQ(dual.value, here[i]) << formula;
              EXPECT_NEAR(dual.dx, (right[i] - left[i]) / (2 * kStep), 1e-8) << formula;
              EXPECT_NEAR(dual.dy, (up[i] - down[i]) / (2 * kStep), 1e-8) << formula;
              ++i;
            });
  EXPECT_EQ(i, here.size());
}

}  // namespace
}  // namespace vorn
