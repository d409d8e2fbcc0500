#include "quality/distributions.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace vorn {
namespace {

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();

// log(Gamma(a + 1) / (sqrt(2 pi a) (a/e)^a)), Stirling's series (Abramowitz and Stegun 1964,
// 6.1.41).
double stirling_error(double a) {
  if (a < 15.0) {
    return std::lgamma(a + 1.0) - 0.5 * std::log(2.0 * std::numbers::pi * a) - a * std::log(a) + a;
  }
  const double a2 = a * a;
  return (1.0 / 12.0 - (1.0 / 360.0 - (1.0 / 1260.0 - 1.0 / (1680.0 * a2)) / a2) / a2) / a;
}

// log(x^a e^-x / Gamma(a + 1)), without the cancellation of large terms where x is close to a
// (Loader 2000).
double log_gamma_density(double a, double x) {
  const double u = (x - a) / a;
  const double exponent = std::fabs(u) < 0.5 ? std::log1p(u) - u : std::log(x / a) - u;
  return a * exponent - 0.5 * std::log(2.0 * std::numbers::pi * a) - stirling_error(a);
}

// P(a, x) by its series, for x < a + 1 (Abramowitz and Stegun 1964, 6.5.29).
double lower_gamma_series(double a, double x) {
  double term = 1.0;
  double sum = 1.0;
  for (double n = a + 1.0; term > sum * kEpsilon; n += 1.0) {
    term *= x / n;
    sum += term;
  }
  return sum * std::exp(log_gamma_density(a, x));
}

// Q(a, x) = 1 - P(a, x) by its continued fraction, for x > a + 1 (Abramowitz and Stegun 1964,
// 6.5.31; evaluated after Lentz 1976).
double upper_gamma_fraction(double a, double x) {
  constexpr double kTiny = 1e-300;
  double b = x + 1.0 - a;
  double c = 1.0 / kTiny;
  double d = 1.0 / b;
  double h = d;
  for (double n = 1.0; n < 1e7; n += 1.0) {
    const double factor = -n * (n - a);
    b += 2.0;
    d = factor * d + b;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = b + factor / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1.0 / d;
    h *= c * d;
    if (std::fabs(c * d - 1.0) < kEpsilon) break;
  }
  return h * a * std::exp(log_gamma_density(a, x));
}

// log(erfc(x)), x >= 0.
double log_erfc(double x) {
  constexpr double kAsymptoticFrom = 25.0;
  if (x < kAsymptoticFrom) return std::log(std::erfc(x));
  // Abramowitz and Stegun 1964, 7.1.23.
  const double t = 1.0 / (2.0 * x * x);
  const double series = 1.0 - t * (1.0 - 3.0 * t * (1.0 - 5.0 * t * (1.0 - 7.0 * t)));
  return -x * x - std::log(x * std::sqrt(std::numbers::pi)) + std::log(series);
}

}  // namespace

double normal_quantile(double p) {
  if (!(p > 0.0 && p < 1.0)) return std::numeric_limits<double>::quiet_NaN();
  if (p < 0.5) return -normal_quantile(1.0 - p);
  // The upper tail is convex for z > 0: Newton's iterates from 0 approach the root from the left.
  const double tail = 1.0 - p;
  double z = 0.0;
  for (int i = 0; i < 100; ++i) {
    const double excess = 0.5 * std::erfc(z / std::numbers::sqrt2) - tail;
    const double density = std::exp(-0.5 * z * z) / std::sqrt(2.0 * std::numbers::pi);
    const double step = excess / density;
    z += step;
    if (std::fabs(step) <= 2.0 * kEpsilon * z) break;
  }
  return z;
}

double chi_square_cdf(double x, double degrees_of_freedom) {
  if (!(x > 0.0)) return 0.0;
  const double a = 0.5 * degrees_of_freedom;
  const double half = 0.5 * x;
  return half < a + 1.0 ? lower_gamma_series(a, half) : 1.0 - upper_gamma_fraction(a, half);
}

double chi_square_quantile(double p, double degrees_of_freedom) {
  if (!(p > 0.0 && p < 1.0) || !(degrees_of_freedom > 0.0)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  const double a = 0.5 * degrees_of_freedom;
  // P(a, x) <= x^a / Gamma(a + 1) bounds the logarithm of the root from below.
  double low = (std::log(p) + std::lgamma(a + 1.0)) / a;
  double high = std::log(a + 50.0 * (1.0 + std::sqrt(a)));
  if (low < -700.0) return 0.0;
  // Wilson and Hilferty 1931.
  const double v = 2.0 / (9.0 * degrees_of_freedom);
  const double cube = 1.0 - v + normal_quantile(p) * std::sqrt(v);
  double y = cube > 0.0 ? std::log(a * cube * cube * cube) : low;
  for (int i = 0; i < 200; ++i) {
    if (!(y > low && y < high)) y = 0.5 * (low + high);
    const double excess = chi_square_cdf(2.0 * std::exp(y), degrees_of_freedom) - p;
    (excess < 0.0 ? low : high) = y;
    const double slope = a * std::exp(log_gamma_density(a, std::exp(y)));
    const double step = -excess / slope;
    y += step;
    if (!(std::fabs(step) > 4.0 * kEpsilon) || high - low <= 4.0 * kEpsilon) break;
  }
  return 2.0 * std::exp(y);
}

double chi_square_log10_tail(double x, int degrees_of_freedom) {
  const double log_tail = degrees_of_freedom == 2 ? -0.5 * x : log_erfc(std::sqrt(0.5 * x));
  return log_tail / std::numbers::ln10;
}

double noncentrality(double alpha, double power) {
  return normal_quantile(1.0 - 0.5 * alpha) + normal_quantile(power);
}

}  // namespace vorn
