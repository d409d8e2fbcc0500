// Quantiles and tails against published and independently computed values, and the laws that hold
// for all of them.

#include "quality/distributions.h"

#include <gtest/gtest.h>

#include <cmath>

#include "quality/ellipsoid.h"

namespace vorn {
namespace {

TEST(Distributions, NormalQuantilesInvertTheDistribution) {
  // Abramowitz and Stegun 1964, table 26.5.
  EXPECT_NEAR(normal_quantile(0.975), 1.959963984540054, 1e-15);
  EXPECT_NEAR(normal_quantile(0.8), 0.8416212335729143, 1e-15);
  EXPECT_EQ(normal_quantile(0.5), 0.0);
  for (const double p : {1e-12, 1e-5, 0.02, 0.3, 0.7, 0.9995, 1 - 1e-9}) {
    EXPECT_NEAR(0.5 * std::erfc(-normal_quantile(p) / std::sqrt(2.0)), p, 2e-16 + 1e-13 * p) << p;
  }
  EXPECT_TRUE(std::isnan(normal_quantile(0.0)));
  EXPECT_TRUE(std::isnan(normal_quantile(1.0)));
  EXPECT_NEAR(noncentrality(0.001, 0.8), 4.132147965, 1e-9);
}

struct ChiSquareCase {
  double p;
  double degrees_of_freedom;
  double x;
};

TEST(Distributions, ChiSquareQuantilesHoldForFractionsAndMillions) {
  const ChiSquareCase cases[] = {
      {0.025, 1261, 1164.4793353687871},      {0.975, 1261, 1361.308844111466},
      {0.025, 0.37, 2.8271055403055967e-09},  {0.975, 0.37, 2.8874361341503314},
      {0.975, 1.0, 5.023886187314888},        {0.025, 2.5, 0.11862294210006345},
      {0.025, 2500000.0, 2495619.2819105033}, {0.999, 1, 10.827566170662733},
  };
  for (const ChiSquareCase& c : cases) {
    EXPECT_NEAR(chi_square_quantile(c.p, c.degrees_of_freedom) / c.x, 1.0, 1e-10)
        << c.p << ' ' << c.degrees_of_freedom;
    EXPECT_NEAR(chi_square_cdf(c.x, c.degrees_of_freedom), c.p, 1e-11);
  }
  // Two degrees of freedom have a closed form.
  for (const double p : {1e-6, 0.4, 0.999}) {
    EXPECT_NEAR(chi_square_quantile(p, 2.0) / (-2.0 * std::log1p(-p)), 1.0, 1e-13);
  }
  EXPECT_EQ(chi_square_quantile(0.025, 1e-4), 0.0) << "below the smallest double";
  EXPECT_TRUE(std::isnan(chi_square_quantile(0.5, 0.0)));
}

TEST(Distributions, TailsReachFarBelowTheSmallestDouble) {
  EXPECT_NEAR(chi_square_log10_tail(10.827566170662733, 1), -3.0, 1e-12);
  EXPECT_NEAR(chi_square_log10_tail(1e6, 2), -1e6 / (2 * std::log(10.0)), 1e-9);
  EXPECT_NEAR(chi_square_log10_tail(1500.0, 1), -327.40725604416656, 1e-9);
  EXPECT_NEAR(chi_square_log10_tail(40000.0, 1), -8688.2887388559, 1e-9);
  // Both sides of the point where the asymptotic series takes over.
  const double step = 1e-6;
  const double below = chi_square_log10_tail(1250.0 - step, 1);
  const double above = chi_square_log10_tail(1250.0 + step, 1);
  EXPECT_NEAR(below - above, step * (1 + 1 / 1250.0) / std::log(10.0), 1e-11);
}

TEST(Ellipsoid, RebuildsTheMatrixFromItsAxes) {
  const Symmetric3 matrices[] = {{4, 1, 0.5, 3, -0.7, 2},
                                 {1, 0, 0, 1, 0, 1},
                                 {1e-12, 3e-13, 0, 2e-12, 0, 5e-6},
                                 {2, 2, 2, 2, 2, 2},
                                 {0, 0, 0, 0, 0, 0}};
  for (const Symmetric3& m : matrices) {
    const Ellipsoid e = error_ellipsoid(m);
    EXPECT_EQ(semi_axes(m), e.axes);
    EXPECT_GE(e.axes[0], e.axes[1]);
    EXPECT_GE(e.axes[1], e.axes[2]);
    const double scale = 1e-14 * (m[0] + m[3] + m[5]);
    std::size_t at = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t j = i; j < 3; ++j, ++at) {
        double sum = 0.0;
        for (std::size_t k = 0; k < 3; ++k) {
          sum += e.axes[k] * e.axes[k] * e.directions[k][i] * e.directions[k][j];
        }
        EXPECT_NEAR(sum, m[at], scale);
        EXPECT_NEAR(dot(e.directions[i], e.directions[j]), i == j ? 1.0 : 0.0, 1e-14);
      }
    }
  }
  const Ellipsoid e = error_ellipsoid({1, 0, 0, 9, 0, 4});
  EXPECT_EQ(e.axes, (Vec3{3, 2, 1}));
  EXPECT_EQ(e.directions[0], (Vec3{0, 1, 0})) << "the largest component is positive";
}

}  // namespace
}  // namespace vorn
