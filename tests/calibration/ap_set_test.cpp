#include "calibration/ap_set.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "calibration/ap_models.h"
#include "driver/options.h"
#include "support/captured_output.h"
#include "support/reader_cases.h"

namespace vorn {
namespace {

using test::captured_output;
using test::expect_reader;
using test::written_text;

TEST(APSetFile, AcceptsAndRejects) {
  expect_reader(
      {
          {"", 1, 0, ""},
          {"decentering-dist A C 1 2 3 4 stop-dep decentering-dist", 1, 1, ""},
          {"inner-or A C 1 1 1 1 1 1 decentering-dist A D 1 2 3 4 inner-or B C 0 0 0 0 0 0", 1, 2,
           "ATTENTION: AP set A was replaced.\n"},
          {"inner-or A", 1, 1, ""},
          {"inner-or A C 1 1 x 1 1 1 nonsense", 1, 1, ""},
          {"inner-or", -1, 0, "ERROR: Read AP set  failed.\n"},
          {"decentering-dist A C 1 2 3 4 5", -1, 1, "ERROR: Read AP set: Unknown type: 5\n"},
          {"camera-frame A C", -1, 0, "ERROR: Read AP set: Unknown type: camera-frame\n"},
      },
      [&](TokenReader& in, int& count) {
        OwnedList<APSet> sets;
        const int result = read_ap_set_file(in, sets);
        count = sets.count();
        if (count == 2) {  // replaced in its slot
          EXPECT_EQ(sets[0]->camera_id, "D");
          EXPECT_EQ(sets[0]->value(1), 3);
        }
        return result;
      });
}

TEST(APSet, BindsToItsCamera) {
  OwnedList<Camera> cameras;
  TokenReader camera_text("camera-frame C - 100 0 0 200 100");
  ASSERT_EQ(read_camera_file(camera_text, cameras), 1);
  APSetIO set;
  set.id = "A";
  set.camera_id = "X";
  EXPECT_EQ(captured_output([&] { EXPECT_EQ(set.bind_to_camera(cameras), -1); }),
            "ERROR: AP set A : camera X not found.\n");
  EXPECT_FALSE(set.used || cameras[0]->used);
  set.camera_id = "C";
  EXPECT_EQ(set.bind_to_camera(cameras), 1);
  EXPECT_TRUE(set.used && cameras[0]->used);
  EXPECT_EQ(cameras[0]->ap_sets, std::vector<APSet*>{&set});
}

// A camera of 100 mm with a format of 200 mm x 100 mm.
class EffectGridTest : public testing::Test {
 protected:
  EffectGridTest() {
    TokenReader in("camera-frame C - 100 0 0 200 100");
    read_camera_file(in, cameras_);
    options_.grid_x = 3;
    options_.grid_y = 2;
  }
  std::string effects(APSet& set) {
    set.id = "A";
    set.camera_id = "C";
    return written_text([&](TextWriter& out) { set.print_grid_effects(out, options_, cameras_); });
  }

  OwnedList<Camera> cameras_;
  Options options_;
};

TEST_F(EffectGridTest, InnerOrientation) {
  APSetIO set;
  set.value(0) = 5e-6;
  set.value(2) = 1e-6;
  EXPECT_EQ(effects(set),
            "AP set ID            :  A\n"
            "AP set type          :  inner orientation\n"
            "Corresponding camera :  C\n"
            "Effects on photo-coordinates\n"
            "  - range in x       :  min = -100.0 mm ,  max = +100.0 mm\n"
            "  - range in y       :  min =  -50.0 mm ,  max =  +50.0 mm\n"
            "\n"
            "inner orientation (dc only):\n"
            "\n"
            " (  +1.0,  -0.5) (  +0.0,  -0.5) (  -1.0,  -0.5)\n"
            " (  +1.0,  +0.5) (  +0.0,  +0.5) (  -1.0,  +0.5)\n"
            "\n");
}

// One parameter after the other: the grids in which it must show, as digits of a binary number, the
// grid of all distortions last.
TEST_F(EffectGridTest, EachParameterHasItsGrids) {
  std::string captions[5] = {"inner orientation (dc only):\n\n",
                             "radial symmetric distortion (K1, K2, K3):\n\n",
                             "decentering distortion (P1, P2):\n\n", "", "total distortion:\n\n"};
  const int grids[2][10] = {{0, 0, 17, 9, 9, 3, 3, 3, 5, 5}, {0, 0, 17, 3, 3, 3, 5, 5, 9, 9}};
  // From left to right: bit 4 is the first caption, bit 0 the last.
  const int bit_of_grid[5] = {16, 2, 4, 8, 1};
  const Keyword models[2] = {Keyword::gap, Keyword::australis};
  for (std::size_t model = 0; model < 2; ++model) {
    captions[3] =
        model == 0 ? "in-plane distortion (sx, a1):\n\n" : "in-plane distortion (b1, b2):\n\n";
    for (std::int32_t k = 0; k < 10; ++k) {
      const std::unique_ptr<APSet> set = make_ap_set(models[model]);
      SCOPED_TRACE(set->get_param_name(k));
      set->value(k) = 1;
      const std::string text = effects(*set);
      std::size_t begin = 0;
      for (std::size_t grid = 0; grid < 5; ++grid) {
        begin = text.find(captions[grid], begin);
        ASSERT_NE(begin, std::string::npos) << captions[grid];
        begin += captions[grid].size();
        const std::size_t end = grid < 4 ? text.find(captions[grid + 1]) : text.size();
        const bool shows =
            text.substr(begin, end - begin).find_first_of("123456789") != std::string::npos;
        EXPECT_EQ(shows, (grids[model][k] & bit_of_grid[grid]) != 0) << captions[grid];
      }
    }
  }
}

}  // namespace
}  // namespace vorn
