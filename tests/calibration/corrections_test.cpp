#include "calibration/corrections.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_output;

TEST(CorrectionFile, TakesWhatIsThere) {
  struct Case {
    const char* text;
    int count;
    std::size_t num_eos;  // of the last correction
    std::size_t num_coeffs;
    bool replaced;  // of the name A
  };
  const Case cases[] = {
      {"", 0, 0, 0, false},
      {"A stop-dep 0 1 1 1 1 1 1 1 stop-dep B", 1, 0, 1, false},
      {"A E stop-dep 0 -3 B E F stop-dep 0 0", 2, 2, 0, false},
      {"A E stop-dep 0 0 A stop-dep 0 0", 1, 0, 0, true},
      {"A E1 E2", 1, 2, 0, false},
      {"A E stop-dep 5 x", 1, 1, 0, false},
      {"A E stop-dep 5 99999999999 1 1 1 1 1 1", 1, 1, 0, false},
      {"A E stop-dep 5 2000000000 1 1 1 1 1 1 B E", 1, 1, 2, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<PosCorrection> pos;
    OwnedList<AttCorrection> att;
    TokenReader in(c.text);
    TokenReader again(c.text);
    EXPECT_EQ(captured_output([&] {
                EXPECT_EQ(read_pos_correction_file(in, pos), 1);
                EXPECT_EQ(read_att_correction_file(again, att), 1);
              }),
              c.replaced ? "ATTENTION: Position correction A was replaced.\n"
                           "ATTENTION: Attitude correction A was replaced.\n"
                         : "");
    ASSERT_EQ(pos.num_slots(), c.count);
    ASSERT_EQ(att.num_slots(), c.count);
    if (c.count == 0) continue;
    EXPECT_EQ(pos[c.count - 1]->eo_ids.size(), c.num_eos);
    EXPECT_EQ(att[c.count - 1]->polynomial.coeffs.size(), c.num_coeffs);
    EXPECT_EQ(att[c.count - 1]->polynomial.coeff_std_devs.size(), c.num_coeffs);
  }
}

template <class Geometry>
ImageGeometry& add(OwnedList<ImageGeometry>& list, const char* id) {
  auto geometry = std::make_unique<Geometry>();
  geometry->id = id;
  return list.append(std::move(geometry));
}

template <class Correction>
std::string bind(Correction& correction, const OwnedList<ImageGeometry>& geometries,
                 std::vector<std::string> eo_ids, int result) {
  correction.id = "N";
  correction.eo_ids = std::move(eo_ids);
  return captured_output([&] { EXPECT_EQ(correction.bind_to_eos(geometries), result); });
}

TEST(CorrectionBinding, AttachesToOrientationsAndRefusesOthers) {
  OwnedList<ImageGeometry> geometries;
  ImageGeometry& e = add<EOAnglesOPKRot>(geometries, "E");
  ImageGeometry& q = add<EOQuaternion>(geometries, "Q");
  add<DirectLinearTransf>(geometries, "D");
  PosCorrection pos;
  AttCorrection att;
  EXPECT_EQ(bind(pos, geometries, {}, 1), "");
  EXPECT_EQ(bind(pos, geometries, {"X"}, -1), "ERROR: Position correction N: EO X not found.\n");
  EXPECT_EQ(bind(att, geometries, {"X"}, -1), "ERROR: Attitude correction N: EO X not found.\n");
  EXPECT_EQ(bind(pos, geometries, {"D"}, -1),
            "ERROR: Position correction N: EO D invalid image geometry.\n");
  EXPECT_EQ(bind(att, geometries, {"D"}, -1),
            "ERROR: Attitude correction N: EO D invalid image geometry.\n");
  EXPECT_FALSE(pos.used || att.used);
  EXPECT_EQ(bind(pos, geometries, {"E", "Q"}, 1) + bind(att, geometries, {"Q", "E"}, 1), "");
  EXPECT_TRUE(pos.used && att.used);
  EXPECT_TRUE(e.has_pos_correction() && e.has_att_correction());
  EXPECT_TRUE(q.has_pos_correction() && !q.has_att_correction());
  // The later of two corrections holds the slot.
  PosCorrection second;
  bind(second, geometries, {"E"}, 1);
  EXPECT_EQ(dynamic_cast<ExtOrientation&>(e).pos_correction(), &second);
}

}  // namespace
}  // namespace vorn
