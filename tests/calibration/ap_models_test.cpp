#include "calibration/ap_models.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace vorn {
namespace {

struct ModelCase {
  Keyword code;
  const char* keyword;
  const char* type_name;
  std::vector<std::string> names;  // of the first parameters
  std::int32_t num_params;
  double grid_width;
  Vec3 point;
  std::vector<Pair> derivs;  // by hand, at the point
};

// 31/28 b^2 = 31/7 and 9/70 b^4 = 72/35 for b = 2.
constexpr double kU = -48.0 / 35;
constexpr double kV = 43.2;

const ModelCase kModels[] = {
    {Keyword::gap,
     "gap",
     "GAP",
     {"dxp", "dyp", "dc", "sx", "a1", "K1", "K2", "K3", "P1", "P2"},
     10,
     0,
     {1, 2, -4},
     {{1, 0},
      {0, 1},
      {0.25, 0.5},
      {-1, 0},
      {2, 1},
      {5, 10},
      {25, 50},
      {125, 250},
      {7, 4},
      {4, 13}}},
    {Keyword::australis,
     "australis",
     "Australis",
     {"dxp", "dyp", "dc", "K1", "K2", "K3", "P1", "P2", "b1", "b2"},
     10,
     0,
     {1, 2, -4},
     {{1, 0}, {0, 1}, {0.25, 0.5}, {5, 10}, {25, 50}, {125, 250}, {7, 4}, {4, 13}, {1, 0}, {2, 0}}},
    {Keyword::p12,
     "p12",
     "12-parameter (Ebner)",
     {"a1", "a2", "a3", "a4", "a5", "a6", "a7", "a8", "a9", "a10", "a11", "a12"},
     12,
     std::sqrt(1.5),
     {2, 3, -4},
     {{2, -3},
      {3, 2},
      {-6, 6},
      {6, -16},
      {8, 0},
      {0, 3},
      {16, 0},
      {0, 9},
      {9, 0},
      {0, 16},
      {24, 0},
      {0, 24}}},
    {Keyword::p44,
     "p44",
     "44-parameter (Gruen)",
     {"a1", "a2"},
     44,
     2,
     {1, 3, -4},
     {{1, -3},      {3, 1},     {3, -10},       {7, 0},         {0, -1},        {10.0 / 7, 3},
      {-2.4, 0},    {-3, 0},    {7, 0},         {16.8, 0},      {0, -2.4},      {0, -3},
      {0, 7},       {0, 16.8},  {kU, 0},        {-7.2, 0},      {-7, 0},        {16.8, 0},
      {kV, 0},      {0, kU},    {0, -7.2},      {0, -7},        {0, 16.8},      {0, kV},
      {3 * kU, 0},  {-16.8, 0}, {-16.8, 0},     {kV, 0},        {0, 3 * kU},    {0, -16.8},
      {0, -16.8},   {0, kV},    {7 * kU, 0},    {-40.32, 0},    {-kV, 0},       {0, 7 * kU},
      {0, -40.32},  {0, -kV},   {16.8 * kU, 0}, {-2.4 * kV, 0}, {0, 16.8 * kU}, {0, -2.4 * kV},
      {kU * kV, 0}, {0, kU* kV}}},
    {Keyword::inner_or,
     "inner-or",
     "inner orientation",
     {"dxp", "dyp", "dc"},
     3,
     0,
     {1, 2, -4},
     {{1, 0}, {0, 1}, {0.25, 0.5}}},
    {Keyword::radial_dist,
     "radial-dist",
     "radial distortion",
     {"K1", "K2", "K3"},
     3,
     0,
     {1, 2, -4},
     {{5, 10}, {25, 50}, {125, 250}}},
    {Keyword::decentering_dist,
     "decentering-dist",
     "decentering distortion",
     {"P1", "P2"},
     2,
     0,
     {1, 2, -4},
     {{7, 4}, {4, 13}}},
    {Keyword::in_plane_dist,
     "in-plane-dist",
     "in-plane distortion",
     {"a1", "a2"},
     12,
     0,
     {2, 3, -4},
     {{2, 0},
      {3, 0},
      {6, 0},
      {9, 0},
      {12, 0},
      {18, 0},
      {36, 0},
      {0, 6},
      {0, 4},
      {0, 12},
      {0, 18},
      {0, 36}}},
    {Keyword::out_of_plane_dist,
     "out-of-plane-dist",
     "out-of-plane distortion",
     {"a13", "a14", "a15"},
     3,
     0,
     {3, 2, -4},
     {{-3.75, -2.5}, {-27, -18}, {-48.75, -32.5}}},
};

std::unique_ptr<APSet> make_model(const ModelCase& model) {
  std::unique_ptr<APSet> set = make_ap_set(model.code);
  if (auto* grid_set = dynamic_cast<APSetP*>(set.get())) grid_set->grid_width = model.grid_width;
  return set;
}

TEST(APModels, FollowTheirTable) {
  for (const ModelCase& model : kModels) {
    SCOPED_TRACE(model.keyword);
    EXPECT_EQ(lookup_keyword(model.keyword), model.code);
    const std::unique_ptr<APSet> set = make_model(model);
    EXPECT_EQ(set->get_keyword(), model.keyword);
    EXPECT_EQ(set->get_type_name(), model.type_name);
    ASSERT_EQ(set->num_ap(), model.num_params);
    for (std::size_t k = 0; k < model.names.size(); ++k) {
      EXPECT_EQ(set->get_param_name(static_cast<std::int32_t>(k)), model.names[k]);
    }
  }
  EXPECT_EQ(make_ap_set(Keyword::ap_set), nullptr);
}

TEST(APModels, DerivativesByHand) {
  for (const ModelCase& model : kModels) {
    SCOPED_TRACE(model.keyword);
    const std::unique_ptr<APSet> set = make_model(model);
    set->index = 17;
    DesignBlock block;
    set->get_derivs(model.point, block);
    EXPECT_EQ(block.index, 17);
    ASSERT_EQ(block.a.rows(), 2);
    ASSERT_EQ(block.a.cols(), model.num_params);
    ASSERT_EQ(model.derivs.size(), static_cast<std::size_t>(model.num_params));
    for (std::int32_t k = 0; k < model.num_params; ++k) {
      const Pair& expected = model.derivs[static_cast<std::size_t>(k)];
      EXPECT_NEAR(block.a[0][k], expected[0], 1e-12) << set->get_param_name(k);
      EXPECT_NEAR(block.a[1][k], expected[1], 1e-12) << set->get_param_name(k);
    }
  }
}

TEST(APModels, CorrectionIsDerivativesTimesValues) {
  for (const ModelCase& model : kModels) {
    SCOPED_TRACE(model.keyword);
    const std::unique_ptr<APSet> set = make_model(model);
    Pair all{};
    Pair odd{};
    std::string mask;
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      set->value(k) = 1.0 / (k + 2);
      mask += k % 2 == 1 ? '1' : '0';
      for (std::size_t row = 0; row < 2; ++row) {
        const double term = model.derivs[static_cast<std::size_t>(k)][row] / (k + 2);
        all[row] += term;
        if (k % 2 == 1) odd[row] += term;
      }
    }
    const Pair correction = set->get_correction(model.point);
    const Pair masked = set->get_correction_masked(model.point, mask);
    for (std::size_t row = 0; row < 2; ++row) {
      EXPECT_NEAR(correction[row], all[row], 1e-12 * (1 + std::fabs(all[row])));
      EXPECT_NEAR(masked[row], odd[row], 1e-12 * (1 + std::fabs(odd[row])));
    }
  }
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
    for (int row = 0; row <= intervals; ++row) {
      for (int column = 0; column <= intervals; ++column) {
        set->get_derivs({b * (2.0 * column / intervals - 1), b * (2.0 * row / intervals - 1), -1},
                        block);
        for (std::int32_t i = 0; i < n; ++i) {
          for (std::int32_t j = 0; j < n; ++j) {
            gram[i][j] += block.a[0][i] * block.a[0][j] + block.a[1][i] * block.a[1][j];
          }
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

// At the principal point only shifts and the constants of the grid models remain.
TEST(APModels, PrincipalPoint) {
  for (const ModelCase& model : kModels) {
    SCOPED_TRACE(model.keyword);
    const std::unique_ptr<APSet> set = make_model(model);
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      const std::string name = set->get_param_name(k);
      set->value(k) = name == "dxp" || name == "dyp" || model.grid_width > 0 ? 0 : 1;
    }
    EXPECT_EQ(set->get_correction({0, 0, -0.1}), (Pair{0, 0}));
  }
  APSetP12 p12;
  p12.grid_width = 0.3;
  p12.value(2) = 1;
  EXPECT_NEAR(p12.get_correction({0, 0, -1})[0], 4.0 / 3 * 0.09, 1e-15);
  p12.grid_width = 0;
  EXPECT_NEAR(p12.get_correction({0.2, 0, -1})[0], -2 * 0.04, 1e-15);
}

}  // namespace
}  // namespace vorn
