#include "calibration/corrections.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_output;

// Read as a file of either class.
constexpr const char* kRecord =
    "N E1 E2 stop-dep 10 3  1 1e31 2 1e-31 3 0.5  4 1 5 1 6 1  0.5 1 0 1 -1 1";

TEST(Corrections, RecordValuesAndParameters) {
  OwnedList<PosCorrection> list;
  TokenReader in(kRecord);
  ASSERT_EQ(read_pos_correction_file(in, list), 1);
  ASSERT_EQ(list.count(), 1);
  PosCorrection& n = *list[0];
  EXPECT_EQ(n.id, "N");
  EXPECT_EQ(n.eo_ids, (std::vector<std::string>{"E1", "E2"}));
  EXPECT_EQ(n.t0, 10);
  EXPECT_EQ(n.value_at(10), (Vec3{1, 2, 3}));
  EXPECT_EQ(n.value_at(12), (Vec3{1 + 8 + 2, 2 + 10, 3 + 12 - 4}));
  n.t0 = 12;
  EXPECT_EQ(n.value_at(12), (Vec3{1, 2, 3}));

  n.init_params();
  ASSERT_EQ(n.num_params(), 9U);
  EXPECT_EQ(n.state_name(0), "unk");
  EXPECT_EQ(n.state_name(1), "eli");
  EXPECT_EQ(n.state_name(2), "obs");
  EXPECT_EQ(n.param(6).initial, 0.5);
  *n.param(4).value = 50;
  EXPECT_EQ(n.value_at(13)[1], 52);
  EXPECT_EQ(PosCorrection().value_at(3), (Vec3{0, 0, 0}));
}

TEST(Corrections, Names) {
  const PosCorrection pos;
  const AttCorrection att;
  EXPECT_EQ(pos.get_keyword(), "pos-corr");
  EXPECT_EQ(att.get_keyword(), "att-corr");
  EXPECT_EQ(pos.get_type_name(), "position correction");
  EXPECT_EQ(att.get_type_name(), "attitude correction");
  EXPECT_EQ(pos.get_param_name(0), "Xo[0]");
  EXPECT_EQ(pos.get_param_name(31), "Yo[10]");
  EXPECT_EQ(att.get_param_name(2), "a3[0]");
  EXPECT_EQ(att.get_param_name(3), "a1[1]");
}

// Column 3k + c is the orientation's column of component c times tau^k.
template <class Correction>
void check_derivs(const Correction& correction, std::int32_t first) {
  DesignBlock eo;
  eo.a.resize(2, 7);
  for (std::int32_t j = 0; j < 7; ++j) {
    eo.a[0][j] = 1 + j;
    eo.a[1][j] = -10 * j;
  }
  DesignBlock block;
  correction.get_derivs(13, eo, block);
  EXPECT_EQ(block.index, 21);
  ASSERT_EQ(block.a.rows(), 2);
  ASSERT_EQ(block.a.cols(), 9);
  const double powers[] = {1, 3, 9};
  for (std::int32_t j = 0; j < 9; ++j) {
    for (std::int32_t row = 0; row < 2; ++row) {
      EXPECT_EQ(block.a[row][j], eo.a[row][first + j % 3] * powers[j / 3]) << row << ' ' << j;
    }
  }
}

TEST(Corrections, DerivativeColumns) {
  OwnedList<PosCorrection> pos;
  OwnedList<AttCorrection> att;
  TokenReader in(kRecord);
  TokenReader again(kRecord);
  read_pos_correction_file(in, pos);
  read_att_correction_file(again, att);
  pos[0]->index = att[0]->index = 21;
  check_derivs(*pos[0], 0);
  check_derivs(*att[0], 3);
  DesignBlock empty;
  PosCorrection().get_derivs(13, DesignBlock(), empty);
  EXPECT_EQ(empty.a.cols(), 0);
}

struct FileCase {
  const char* text;
  int count;
  std::size_t num_eos;  // of the last correction
  std::size_t num_coeffs;
  const char* output;
};

TEST(CorrectionFile, TakesWhatIsThere) {
  const FileCase cases[] = {
      {"", 0, 0, 0, ""},
      {"stop-dep A", 0, 0, 0, ""},
      {"A stop-dep 0 1 1 1 1 1 1 1 stop-dep B", 1, 0, 1, ""},
      {"A E stop-dep 0 1 1 1 1 1 1 1 B E F stop-dep 0 0", 2, 2, 0, ""},
      {"A E stop-dep 0 -3 B E F stop-dep 0 0", 2, 2, 0, ""},
      {"A E stop-dep 0 0 A stop-dep 0 0", 1, 0, 0, "A"},
      {"A E1 E2", 1, 2, 0, ""},
      {"A E stop-dep", 1, 1, 0, ""},
      {"A E stop-dep 5 x", 1, 1, 0, ""},
      {"A E stop-dep 5 99999999999 1 1 1 1 1 1", 1, 1, 0, ""},
      {"A E stop-dep 5 2000000000", 1, 1, 0, ""},
      {"A E stop-dep 5 2000000000 1 1 1 1 1 1 2 2\n", 1, 1, 2, ""},
      {"A E stop-dep 5 2000000000 1 1 1 1 1 1 B E", 1, 1, 2, ""},
  };
  for (const FileCase& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<PosCorrection> pos;
    OwnedList<AttCorrection> att;
    TokenReader in(c.text);
    TokenReader again(c.text);
    const std::string name(c.output);
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_pos_correction_file(in, pos), 1); }),
              name.empty() ? "" : "ATTENTION: Position correction " + name + " was replaced.\n");
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_att_correction_file(again, att), 1); }),
              name.empty() ? "" : "ATTENTION: Attitude correction " + name + " was replaced.\n");
    ASSERT_EQ(pos.num_slots(), c.count);
    ASSERT_EQ(att.num_slots(), c.count);
    if (c.count == 0) continue;
    EXPECT_EQ(pos[c.count - 1]->eo_ids.size(), c.num_eos);
    EXPECT_EQ(att[c.count - 1]->polynomial.coeffs.size(), c.num_coeffs);
    EXPECT_EQ(att[c.count - 1]->polynomial.coeff_std_devs.size(), c.num_coeffs);
  }
}

template <class Geometry>
void add_geometry(OwnedList<ImageGeometry>& list, const char* id) {
  auto geometry = std::make_unique<Geometry>();
  geometry->id = id;
  list.append(std::move(geometry));
}

class CorrectionBindingTest : public testing::Test {
 protected:
  CorrectionBindingTest() {
    add_geometry<EOAnglesOPKRot>(geometries_, "E");
    add_geometry<EOQuaternion>(geometries_, "Q");
    add_geometry<DirectLinearTransf>(geometries_, "D");
  }
  template <class Correction>
  std::string bind(Correction& correction, std::vector<std::string> eo_ids, int result) {
    correction.id = "N";
    correction.eo_ids = std::move(eo_ids);
    return captured_output([&] { EXPECT_EQ(correction.bind_to_eos(geometries_), result); });
  }
  OwnedList<ImageGeometry> geometries_;
};

TEST_F(CorrectionBindingTest, AttachesToOrientations) {
  PosCorrection pos;
  AttCorrection att;
  EXPECT_EQ(bind(pos, {}, 1), "");
  EXPECT_FALSE(pos.used);
  EXPECT_EQ(bind(pos, {"E", "Q"}, 1), "");
  EXPECT_EQ(bind(att, {"Q", "E"}, 1), "");
  EXPECT_TRUE(pos.used && att.used);
  EXPECT_TRUE(geometries_[0]->has_pos_correction() && geometries_[0]->has_att_correction());
  EXPECT_TRUE(geometries_[1]->has_pos_correction() && !geometries_[1]->has_att_correction());
}

TEST_F(CorrectionBindingTest, RefusesOthers) {
  PosCorrection pos;
  AttCorrection att;
  EXPECT_EQ(bind(pos, {"E", "X"}, -1), "ERROR: Position correction N: EO X not found.\n");
  EXPECT_TRUE(geometries_[0]->has_pos_correction());
  EXPECT_EQ(bind(pos, {"D"}, -1), "ERROR: Position correction N: EO D invalid image geometry.\n");
  EXPECT_EQ(bind(att, {"X"}, -1), "ERROR: Attitude correction N: EO X not found.\n");
  EXPECT_EQ(bind(att, {"D"}, -1), "ERROR: Attitude correction N: EO D invalid image geometry.\n");
  EXPECT_FALSE(att.used);
}

// The later of two corrections holds the slot.
TEST_F(CorrectionBindingTest, LaterCorrectionWins) {
  PosCorrection first;
  PosCorrection second;
  first.polynomial = {{Vec3{1, 1, 1}}, {Vec3{0, 0, 0}}};
  second.polynomial = {{Vec3{7, 8, 9}}, {Vec3{0, 0, 0}}};
  bind(first, {"E"}, 1);
  bind(second, {"E"}, 1);
  auto& eo = dynamic_cast<ExtOrientation&>(*geometries_[0]);
  EXPECT_EQ(eo.pos_correction(), &second);
}

}  // namespace
}  // namespace vorn
