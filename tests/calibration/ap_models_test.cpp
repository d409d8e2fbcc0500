#include "calibration/ap_models.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vorn {
namespace {

struct ModelCase {
  const char* keyword;
  const char* names;  // of the first parameters
  double grid_width;
  Vec3 point;
  std::vector<double> derivs;  // by hand, at the point: of dx and dy by the first parameter, ...
};

// Of the orthogonal polynomials x, x^2 - b^2/2, x^3 - 17/20 b^2 x, x^4 - 31/28 b^2 x^2 + 9/70 b^4.
constexpr double kQ = 12. / 35;
const std::vector<double> kP44 = {
    3,     2,      -2,   3,         -6,        -20 / 7., 2,      0,        0,         7,
    -10,   -6,     16.8, 0,         -14,       0,        6,      0,        -1.2,      0,
    0,     16.8,   0,    -14,       0,         6,        0,      -1.2,     43.2,      0,
    -33.6, 0,      14,   0,         -3.6,      0,        kQ,     0,        0,         43.2,
    0,     -33.6,  0,    14,        0,         -3.6,     0,      kQ,       -86.4,     0,
    33.6,  0,      -8.4, 0,         3 * kQ,    0,        0,      -86.4,    0,         33.6,
    0,     -8.4,   0,    3 * kQ,    86.4,      0,        -20.16, 0,        7 * kQ,    0,
    0,     86.4,   0,    -20.16,    0,         7 * kQ,   -51.84, 0,        16.8 * kQ, 0,
    0,     -51.84, 0,    16.8 * kQ, 43.2 * kQ, 0,        0,      43.2 * kQ};

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
    {"p44", "a1 a2", 2, {3, -2, -4}, kP44},
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

}  // namespace
}  // namespace vorn
