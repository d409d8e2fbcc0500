#include "calibration/ap_models.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vorn {
namespace {

struct ModelCase {
  const char* keyword;
  const char* names;  // of the first parameters
  double grid_width;
  Vec3 point;
  std::vector<double> derivs;  // by hand, at the point: of dx and dy by the first parameter, ...
};

// 31/28 b^2 = 31/7 and 9/70 b^4 = 72/35 for b = 2.
constexpr double kU = -48.0 / 35;
constexpr double kV = 43.2;

const ModelCase kModels[] = {
    {"gap", "dxp dyp dc sx a1 K1 K2 K3 P1 P2", 0, {1, 2, -4}, {1,   0,   0, 1, 0.25, 0.5, -1,
                                                               0,   2,   1, 5, 10,   25,  50,
                                                               125, 250, 7, 4, 4,    13}},
    {"australis", "dxp dyp dc K1 K2 K3 P1 P2 b1 b2", 0, {1, 2, -4}, {1,  0,  0,  1,   0.25, 0.5, 5,
                                                                     10, 25, 50, 125, 250,  7,   4,
                                                                     4,  13, 1,  0,   2,    0}},
    {"p12",
     "a1 a2 a3 a4 a5 a6 a7 a8 a9 a10 a11 a12",
     std::sqrt(1.5),
     {2, 3, -4},
     {2, -3, 3, 2, -6, 6, 6, -16, 8, 0, 0, 3, 16, 0, 0, 9, 9, 0, 0, 16, 24, 0, 0, 24}},
    {"p44",
     "a1 a2",
     2,
     {1, 3, -4},
     {1,      -3,        3,      1,  3,         -10,    7,         0,      0,     -1,     10.0 / 7,
      3,      -2.4,      0,      -3, 0,         7,      0,         16.8,   0,     0,      -2.4,
      0,      -3,        0,      7,  0,         16.8,   kU,        0,      -7.2,  0,      -7,
      0,      16.8,      0,      kV, 0,         0,      kU,        0,      -7.2,  0,      -7,
      0,      16.8,      0,      kV, 3 * kU,    0,      -16.8,     0,      -16.8, 0,      kV,
      0,      0,         3 * kU, 0,  -16.8,     0,      -16.8,     0,      kV,    7 * kU, 0,
      -40.32, 0,         -kV,    0,  0,         7 * kU, 0,         -40.32, 0,     -kV,    16.8 * kU,
      0,      -2.4 * kV, 0,      0,  16.8 * kU, 0,      -2.4 * kV, kU* kV, 0,     0,      kU* kV}},
    {"inner-or", "dxp dyp dc", 0, {1, 2, -4}, {1, 0, 0, 1, 0.25, 0.5}},
    {"radial-dist", "K1 K2 K3", 0, {1, 2, -4}, {5, 10, 25, 50, 125, 250}},
    {"decentering-dist", "P1 P2", 0, {1, 2, -4}, {7, 4, 4, 13}},
    {"in-plane-dist", "a1 a2", 0, {2, 3, -4}, {2,  0, 3, 0, 6, 0, 9, 0,  12, 0,  18, 0,
                                               36, 0, 0, 6, 0, 4, 0, 12, 0,  18, 0,  36}},
    {"out-of-plane-dist", "a13 a14 a15", 0, {3, 2, -4}, {-3.75, -2.5, -27, -18, -48.75, -32.5}},
};

TEST(APModels, DerivativesByHandAndCorrectionsOfThem) {
  for (const ModelCase& model : kModels) {
    SCOPED_TRACE(model.keyword);
    const std::unique_ptr<APSet> set = make_ap_set(lookup_keyword(model.keyword));
    ASSERT_NE(set, nullptr);
    if (auto* grid_set = dynamic_cast<APSetP*>(set.get())) grid_set->grid_width = model.grid_width;
    DesignBlock block;
    set->get_derivs(model.point, block);
    ASSERT_EQ(block.a.rows(), 2);
    ASSERT_EQ(block.a.cols(), set->num_ap());
    ASSERT_EQ(model.derivs.size(), 2 * static_cast<std::size_t>(set->num_ap()));
    double all[2] = {0, 0};
    double odd[2] = {0, 0};
    std::string mask;
    std::string names;
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      names += set->get_param_name(k) + ' ';
      mask += k % 2 == 1 ? '1' : '0';
      set->value(k) = 1.0 / (k + 2);
      for (std::int32_t row = 0; row < 2; ++row) {
        const double expected = model.derivs[static_cast<std::size_t>(2 * k + row)];
        EXPECT_NEAR(block.a[row][k], expected, 1e-12) << set->get_param_name(k);
        all[row] += expected / (k + 2);
        if (k % 2 == 1) odd[row] += expected / (k + 2);
      }
    }
    EXPECT_TRUE(names.starts_with(model.names + std::string(" "))) << names;
    const Pair correction = set->get_correction(model.point);
    const Pair masked = set->get_correction_masked(model.point, mask);
    for (std::size_t row = 0; row < 2; ++row) {
      EXPECT_NEAR(correction[row], all[row], 1e-12 * (1 + std::fabs(all[row])));
      EXPECT_NEAR(masked[row], odd[row], 1e-12 * (1 + std::fabs(odd[row])));
    }
    // At the principal point only shifts and the constants of the grid models remain.
    if (set->get_param_name(0) == "dxp") set->value(0) = set->value(1) = 0;
    if (model.grid_width == 0) {
      EXPECT_EQ(set->get_correction({0, 0, -0.1}), (Pair{0, 0}));
    }
  }
  EXPECT_EQ(make_ap_set(Keyword::ap_set), nullptr);
}

// Both grid models are built so that no two parameters have a common effect over their grid, which
// reaches from -b to b. A wrong constant or a wrong factor in any term breaks this.
TEST(APModels, GridModelsAreOrthogonalOverTheirGrid) {
  for (const auto& [code, intervals] : {std::pair{Keyword::p12, 2}, std::pair{Keyword::p44, 4}}) {
    const std::unique_ptr<APSet> set = make_ap_set(code);
    const double b = 0.1;
    dynamic_cast<APSetP&>(*set).grid_width = b;
    const std::int32_t n = set->num_ap();
    Matrix gram(n, n);
    gram.zero();
    DesignBlock block;
    for (int node = 0; node < (intervals + 1) * (intervals + 1); ++node) {
      const int row = node / (intervals + 1);
      const int column = node % (intervals + 1);
      set->get_derivs({b * (2.0 * column / intervals - 1), b * (2.0 * row / intervals - 1), -1},
                      block);
      for (std::int32_t i = 0; i < n; ++i) {
        for (std::int32_t j = 0; j <= i; ++j) {
          gram[i][j] += block.a[0][i] * block.a[0][j] + block.a[1][i] * block.a[1][j];
        }
      }
    }
    for (std::int32_t i = 0; i < n; ++i) {
      ASSERT_GT(gram[i][i], 0);
      for (std::int32_t j = 0; j < i; ++j) {
        EXPECT_LT(std::fabs(gram[i][j]), 1e-12 * std::sqrt(gram[i][i] * gram[j][j]))
            << 'a' << i + 1 << " and a" << j + 1;
      }
    }
  }
}

}  // namespace
}  // namespace vorn
