#include "calibration/corrections.h"

#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

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
  return test::captured_output([&] { EXPECT_EQ(correction.bind_to_eos(geometries), result); });
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
