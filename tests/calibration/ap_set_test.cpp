#include "calibration/ap_set.h"

#include "driver/options.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"
#include "support/text_compare.h"

namespace vorn {
namespace {

// A camera of 100 mm with a format of 200 mm x 100 mm, and the sets of tests/data/effect-grids.
class APSetTest : public testing::Test {
 protected:
  APSetTest() {
    TokenReader camera_text("camera-frame C - 100 0 0 200 100");
    read_camera_file(camera_text, cameras_);
    const std::string text = test::file_text(VORN_SOURCE_DIR "/tests/data/effect-grids/ap.txt");
    TokenReader in(text);
    read_ap_set_file(in, sets_);
  }
  OwnedList<Camera> cameras_;
  OwnedList<APSet> sets_;
};

TEST_F(APSetTest, BindsToItsCamera) {
  APSet& set = *sets_[0];
  set.camera_id = "X";
  EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(set.bind_to_camera(cameras_), -1); }),
            "ERROR: AP set G : camera X not found.\n");
  EXPECT_FALSE(set.used || cameras_[0]->used);
  set.camera_id = "C";
  EXPECT_EQ(set.bind_to_camera(cameras_), 1);
  EXPECT_TRUE(set.used && cameras_[0]->used);
  EXPECT_EQ(cameras_[0]->ap_sets, std::vector<APSet*>{&set});
}

TEST_F(APSetTest, PrintsItsEffectsOnGrids) {
  Options options;
  options.grid_x = 3;
  options.grid_y = 2;
  const std::string text = test::written_text([&](TextWriter& out) {
    for (const APSet& set : sets_) set.print_grid_effects(out, options, cameras_);
  });
  EXPECT_EQ(test::first_difference(
                text, test::file_text(VORN_SOURCE_DIR "/tests/data/effect-grids/grids.expected")),
            "");
}

}  // namespace
}  // namespace vorn
