// Sets of additional parameters and time-dependent corrections.

#include <gtest/gtest.h>

#include <cmath>

#include "calibration/ap_models.h"
#include "calibration/ap_set.h"
#include "calibration/corrections.h"
#include "driver/options.h"
#include "geometry/eo_file.h"
#include "geometry/ext_orientation.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"
#include "support/text_compare.h"

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
  }
  EXPECT_EQ(make_ap_set(Keyword::ap_set), nullptr);
}

// Nine models, each made by its own keyword and by no other word.
TEST(APModels, KeywordsMakeTheirModels) {
  const std::vector<std::string_view> keywords = ap_model_keywords();
  EXPECT_EQ(keywords.size(), 9U);
  for (const std::string_view keyword : keywords) {
    const std::unique_ptr<APSet> set = make_ap_set(lookup_keyword(keyword));
    ASSERT_NE(set, nullptr) << keyword;
    EXPECT_EQ(set->get_keyword(), keyword);
  }
  for (const char* other : {"camera-frame", "stop-dep", "GAP", ""}) {
    EXPECT_EQ(make_ap_set(lookup_keyword(other)), nullptr) << other;
  }
}

// The sets of tests/data/effect-grids, of a camera of 100 mm with a format of 200 mm x 100 mm.
TEST(APSet, BindsToItsCameraAndPrintsItsEffects) {
  const std::string folder = VORN_SOURCE_DIR "/tests/data/effect-grids/";
  const std::string text = test::file_text(folder + "ap.txt");
  OwnedList<Camera> cameras;
  OwnedList<APSet> sets;
  TokenReader in(text);
  ASSERT_EQ(read_ap_set_file(in, sets), 1);
  EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(sets[0]->bind_to_camera(cameras), -1); }),
            "ERROR: AP set G : camera C not found.\n");
  TokenReader camera_text("camera-frame C - 100 0 0 200 100");
  ASSERT_EQ(read_camera_file(camera_text, cameras), 1);
  EXPECT_FALSE(sets[0]->used || cameras[0]->used);
  EXPECT_EQ(sets[0]->bind_to_camera(cameras), 1);
  EXPECT_TRUE(sets[0]->used && cameras[0]->used);
  Options options;
  options.grid_x = 3;
  options.grid_y = 2;
  const std::string grids = test::written_text([&](TextWriter& out) {
    for (const APSet& set : sets) set.print_grid_effects(out, options, cameras);
  });
  EXPECT_EQ(test::first_difference(grids, test::file_text(folder + "grids.expected")), "");
}

TEST(CorrectionBinding, AttachesToOrientationsAndRefusesOthers) {
  OwnedList<ImageGeometry> geometries;
  TokenReader in(
      "indiv-type ext-ori-opk-rot E rad 0 0 0 0 1 1 1 0 0 0 1 1 1 "
      "ext-ori-quaternion Q 0 0 0 0 1 1 1 1 0 0 0 1 1 1 1 "
      "pmf-linear D 0 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1");
  ASSERT_EQ(read_eo_file(in, geometries), 1);
  const auto& e = dynamic_cast<ExtOrientation&>(*geometries[0]);
  const auto& q = dynamic_cast<ExtOrientation&>(*geometries[1]);
  PosCorrection pos, second;
  AttCorrection att;
  const auto bind = [&](auto& correction, std::vector<std::string> eo_ids, int result) {
    correction.id = "N";
    correction.eo_ids = std::move(eo_ids);
    return test::captured_output([&] { EXPECT_EQ(correction.bind_to_eos(geometries), result); });
  };
  EXPECT_EQ(bind(pos, {}, 1), "");
  EXPECT_EQ(bind(pos, {"X"}, -1), "ERROR: Position correction N: EO X not found.\n");
  EXPECT_EQ(bind(att, {"X"}, -1), "ERROR: Attitude correction N: EO X not found.\n");
  EXPECT_EQ(bind(pos, {"D"}, -1), "ERROR: Position correction N: EO D invalid image geometry.\n");
  EXPECT_EQ(bind(att, {"D"}, -1), "ERROR: Attitude correction N: EO D invalid image geometry.\n");
  EXPECT_FALSE(pos.used || att.used);
  EXPECT_EQ(bind(pos, {"E", "Q"}, 1) + bind(att, {"Q", "E"}, 1), "");
  EXPECT_TRUE(pos.used && att.used);
  EXPECT_TRUE(e.has_pos_correction() && e.has_att_correction());
  EXPECT_TRUE(q.has_pos_correction() && !q.has_att_correction());
  // The later of two corrections holds the slot.
  bind(second, {"E"}, 1);
  EXPECT_EQ(e.pos_correction(), &second);
}

}  // namespace
}  // namespace vorn
