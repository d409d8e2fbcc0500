#include "calibration/ap_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "calibration/ap_models.h"
#include "driver/options.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::written_text;

struct FileCase {
  const char* text;
  int result;
  int count;
  const char* output;
};

TEST(APSetFile, AcceptsAndRejects) {
  const FileCase cases[] = {
      {"", 1, 0, ""},
      {"stop-dep decentering-dist", 1, 0, ""},
      {"decentering-dist A C 1 2 3 4 stop-dep", 1, 1, ""},
      {"decentering-dist A C 1 2 3 4 decentering-dist B C 1 2 3 4", 1, 2, ""},
      {"inner-or A C 1 1 1 1 1 1 decentering-dist A D 1 2 3 4 inner-or B C 0 0 0 0 0 0", 1, 2,
       "ATTENTION: AP set A was replaced.\n"},
      {"inner-or A C 1 1", 1, 1, ""},
      {"inner-or A", 1, 1, ""},
      {"inner-or A C 1 1 x 1 1 1 nonsense", 1, 1, ""},
      {"inner-or", -1, 0, "ERROR: Read AP set  failed.\n"},
      {"decentering-dist A C 1 2 3 4 5", -1, 1, "ERROR: Read AP set: Unknown type: 5\n"},
      {"camera-frame A C", -1, 0, "ERROR: Read AP set: Unknown type: camera-frame\n"},
      {"GAP A C", -1, 0, "ERROR: Read AP set: Unknown type: GAP\n"},
  };
  for (const FileCase& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<APSet> sets;
    TokenReader in(c.text);
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_ap_set_file(in, sets), c.result); }), c.output);
    EXPECT_EQ(sets.count(), c.count);
  }
}

TEST(APSetFile, ReplacementTakesTheSlot) {
  OwnedList<APSet> sets;
  TokenReader in("inner-or A C 1 1 1 1 1 1 radial-dist B C decentering-dist A D 1 2 3");
  captured_output([&] { EXPECT_EQ(read_ap_set_file(in, sets), 1); });
  // The record of B has no number: reading stops there for good.
  ASSERT_EQ(sets.num_slots(), 2);
  EXPECT_EQ(sets[1]->value(2), 0);

  TokenReader again("decentering-dist A D 1 2 3");
  captured_output([&] { EXPECT_EQ(read_ap_set_file(again, sets), 1); });
  ASSERT_EQ(sets.num_slots(), 2);
  EXPECT_EQ(sets[0]->get_type_name(), "decentering distortion");
  EXPECT_EQ(sets[0]->camera_id, "D");
  EXPECT_EQ(sets[0]->std_dev(0), 2);
  EXPECT_EQ(sets[0]->value(1), 3);
  EXPECT_EQ(sets[0]->std_dev(1), 0);
}

TEST(APSetFile, WrittenSetsReadBack) {
  std::string text;
  for (const char* keyword : {"gap", "australis", "p12", "p44", "inner-or", "radial-dist",
                              "decentering-dist", "in-plane-dist", "out-of-plane-dist"}) {
    std::string record = std::string(keyword) + " S-" + keyword + " C ";
    if (keyword[0] == 'p') record += "20 ";
    const std::unique_ptr<APSet> set = make_ap_set(lookup_keyword(keyword));
    for (int k = 0; k < set->num_ap(); ++k) record += std::to_string(k + 1) + "e-5 1e-31 ";
    text += record;
  }
  const auto write_all = [](const OwnedList<APSet>& sets) {
    return written_text([&](TextWriter& out) {
      for (const APSet& set : sets) set.write(out);
    });
  };
  OwnedList<APSet> first;
  TokenReader in(text);
  ASSERT_EQ(read_ap_set_file(in, first), 1);
  ASSERT_EQ(first.count(), 9);
  EXPECT_EQ(dynamic_cast<APSetP*>(first.find("S-p12"))->grid_width, 0.02);
  const std::string written = write_all(first);
  OwnedList<APSet> second;
  TokenReader again(written);
  ASSERT_EQ(read_ap_set_file(again, second), 1);
  EXPECT_EQ(second.find("S-p44")->value(43), 44e-5);
  EXPECT_EQ(write_all(second), written);
}

TEST(APSet, WritesAndPrints) {
  OwnedList<APSet> sets;
  TokenReader in(
      "p12 P C 20 1e-31 0.5 -2 1e31 3 1e-31 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 "
      "decentering-dist D C 1.23456789e-5 1e31 -2 0.001");
  ASSERT_EQ(read_ap_set_file(in, sets), 1);
  const std::string grid_set = written_text([&](TextWriter& out) { sets[0]->write(out); });
  EXPECT_THAT(grid_set, testing::StartsWith("p12   P   C\n"
                                            "20.000\n"
                                            "  1.00000000e-31     5.0000e-01\n"
                                            " -2.00000000e+00     1.0000e+31\n"
                                            "  3.00000000e+00     1.0000e-31\n"));
  EXPECT_EQ(written_text([&](TextWriter& out) { sets[1]->write(out); }),
            "decentering-dist   D   C\n"
            "  1.23456789e-05     1.0000e+31\n"
            " -2.00000000e+00     1.0000e-03\n"
            "\n");
  EXPECT_THAT(written_text([&](TextWriter& out) { sets[0]->print(out); }),
              testing::StartsWith("AP set ID   :  P\n"
                                  "AP set Type :  12-parameter (Ebner)\n"
                                  "Camera      :  C\n"
                                  "Grid width  :  b = 20 mm\n"
                                  "\n"
                                  "  Param.     State         Value       Std.dev.\n"
                                  "\n"
                                  "  a1         obs       1.000e-31      5.000e-01\n"));
  EXPECT_EQ(written_text([&](TextWriter& out) { sets[1]->print(out); }),
            "AP set ID   :  D\n"
            "AP set Type :  decentering distortion\n"
            "Camera      :  C\n"
            "\n"
            "  Param.     State         Value       Std.dev.\n"
            "\n"
            "  P1         unk       1.235e-05      1.000e+31\n"
            "  P2         obs      -2.000e+00      1.000e-03\n");
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
  EXPECT_FALSE(set.used);
  EXPECT_FALSE(cameras[0]->used);

  set.camera_id = "C";
  EXPECT_EQ(set.bind_to_camera(cameras), 1);
  EXPECT_TRUE(set.used);
  EXPECT_TRUE(cameras[0]->used);
  EXPECT_EQ(cameras[0]->ap_sets, std::vector<APSet*>{&set});
  EXPECT_EQ(captured_errors([&] { set.reserved_op(); }), "ERROR: calling empty function!\n");
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

TEST_F(EffectGridTest, AllParametersUnderTheTypeName) {
  APSetInPlane set;
  set.value(0) = 1e-3;
  set.value(8) = 1e-3;
  const std::string text = effects(set);
  EXPECT_EQ(text.substr(text.find("in-plane distortion:")),
            "in-plane distortion:\n"
            "\n"
            " (-100.0, +10.0) (  +0.0,  +0.0) (+100.0, +10.0)\n"
            " (-100.0, +10.0) (  +0.0,  +0.0) (+100.0, +10.0)\n"
            "\n");
}

// One parameter after the other: the grids in which it must show, as digits of a binary number, the
// grid of all distortions last.
TEST_F(EffectGridTest, EachParameterHasItsGrids) {
  const std::string captions[2][5] = {
      {"inner orientation (dc only):\n\n", "radial symmetric distortion (K1, K2, K3):\n\n",
       "decentering distortion (P1, P2):\n\n", "in-plane distortion (sx, a1):\n\n",
       "total distortion:\n\n"},
      {"inner orientation (dc only):\n\n", "radial symmetric distortion (K1, K2, K3):\n\n",
       "decentering distortion (P1, P2):\n\n", "in-plane distortion (b1, b2):\n\n",
       "total distortion:\n\n"}};
  const int grids[2][10] = {{0, 0, 17, 9, 9, 3, 3, 3, 5, 5}, {0, 0, 17, 3, 3, 3, 5, 5, 9, 9}};
  // From left to right: bit 4 is the first caption, bit 0 the last.
  const int bit_of_grid[5] = {16, 2, 4, 8, 1};
  const Keyword models[2] = {Keyword::gap, Keyword::australis};
  for (std::size_t model = 0; model < 2; ++model) {
    for (std::int32_t k = 0; k < 10; ++k) {
      const std::unique_ptr<APSet> set = make_ap_set(models[model]);
      SCOPED_TRACE(set->get_param_name(k));
      set->value(k) = 1;
      const std::string text = effects(*set);
      std::size_t begin = 0;
      for (std::size_t grid = 0; grid < 5; ++grid) {
        begin = text.find(captions[model][grid], begin);
        ASSERT_NE(begin, std::string::npos) << captions[model][grid];
        begin += captions[model][grid].size();
        const std::size_t end = grid < 4 ? text.find(captions[model][grid + 1]) : text.size();
        const bool shows =
            text.substr(begin, end - begin).find_first_of("123456789") != std::string::npos;
        EXPECT_EQ(shows, (grids[model][k] & bit_of_grid[grid]) != 0) << captions[model][grid];
      }
    }
  }
}

TEST_F(EffectGridTest, OddSizesAndMissingCameras) {
  APSetRadial set;
  const auto rows_of = [&](std::int32_t nx, std::int32_t ny) {
    options_.grid_x = nx;
    options_.grid_y = ny;
    const std::string text = effects(set);
    return text.substr(text.find("Effects on"));
  };
  EXPECT_EQ(rows_of(0, 3).find('('), std::string::npos);
  EXPECT_EQ(rows_of(3, std::numeric_limits<std::int32_t>::min()).find('('), std::string::npos);
  EXPECT_NE(rows_of(1, 2).find("nan"), std::string::npos);

  const std::string head =
      "AP set ID            :  A\n"
      "AP set type          :  radial distortion\n"
      "Corresponding camera :  C\n";
  options_.grid_x = options_.grid_y = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(effects(set), head + "ERROR: Initilization of AP grid failed.\n");
  cameras_.clear();
  EXPECT_EQ(effects(set),
            head + "ERROR: Camera C not found.\nERROR: Initilization of AP grid failed.\n");
}

}  // namespace
}  // namespace vorn
