#pragma once

namespace vorn {

// Quantiles and tail probabilities of the tests. What has no finite value is NaN or infinite.

// z with P(Z <= z) = p of the standard normal distribution, 0 < p < 1.
[[nodiscard]] double normal_quantile(double p);

// P(X <= x) of the chi-square distribution; the degrees of freedom are any positive number.
[[nodiscard]] double chi_square_cdf(double x, double degrees_of_freedom);

// x with P(X <= x) = p of the chi-square distribution, 0 < p < 1. For a small part of a degree of
// freedom the lower quantiles underflow to 0.
[[nodiscard]] double chi_square_quantile(double p, double degrees_of_freedom);

// Decimal logarithm of the probability of more than x under the chi-square distribution with one or
// two degrees of freedom; also where the probability itself is far below the smallest double.
[[nodiscard]] double chi_square_log10_tail(double x, int degrees_of_freedom);

// Shift of the standard normal distribution that a test at the level alpha, two-sided, finds with
// the given power: z(1 - alpha/2) + z(power) (Baarda 1968).
[[nodiscard]] double noncentrality(double alpha, double power);

}  // namespace vorn
