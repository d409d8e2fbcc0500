#include "sensors/object_point.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/captured_output.h"
#include "support/ls_params_guard.h"
#include "support/reader_cases.h"

namespace vorn {
namespace {

using test::captured_output;
using test::expect_reader;

class ObjectPointTest : public testing::Test {
  test::LSParamsGuard defaults_;
};

TEST_F(ObjectPointTest, CoordinateFileAcceptsAndRejects) {
  expect_reader(
      {
          {"", -1, 0, ""},
          {"stop-dep", -1, 0, "ERROR: Unknown file type: stop-dep\n"},
          {"indiv-sdev", 1, 0, ""},
          {"common-sdev (1,2)\na 1 2 3\nb (4) -1 c", 1, 2, ""},
          {"indiv-sdev a 1 2 3 4 5 6 b (1,2,3)(4,5,6) stop-dep c", 1, 2, ""},
          {"common-sdev 1 1 a", -1, 0, "ERROR: Reading common std. dev. failed.\n"},
          {"common-sdev 1 1 1 a 1 2 3 a 1 2", -1, 1, "ERROR: Reading coords. failed.\n"},
          {"common-sdev 1 1 1 a (1,2,3 4", -1, 0, "ERROR: Reading coords. failed.\n"},
          {"indiv-sdev a 1 2 3 1 1 1 b 1 2 3 1 1 -1", 1, 2, ""},
          {"indiv-sdev a 1 2 3 1 1 stop-dep", -1, 0, "ERROR: Reading std. dev. failed.\n"},
      },
      [&](TokenReader& in, int& count) {
        OwnedList<ObjectPoint> points;
        const int result = read_obj_crds(in, points);
        count = points.count();
        return result;
      });
}

TEST_F(ObjectPointTest, RepeatedRecordsAndFilesOverwriteInPlace) {
  OwnedList<ObjectPoint> points;
  TokenReader first("common-sdev 1e31 1e31 1e31 a 1 2 3 b (4,5)");
  TokenReader second("indiv-sdev a 7 8 9 .1 .2 .3");
  EXPECT_EQ(captured_output([&] {
              read_obj_crds(first, points);
              read_obj_crds(second, points);
            }),
            "ATTENTION: Object point a replaced.\n");
  EXPECT_EQ(points[0]->xyz, (Vec3{7, 8, 9}));
  EXPECT_EQ(points[0]->std_devs, (Vec3{.1, .2, .3}));
  EXPECT_EQ(points[0]->type, PointType::control);
  EXPECT_EQ(points[1]->xyz, (Vec3{4, 5, 0}));
  EXPECT_EQ(points[1]->type, PointType::intersection);
}

TEST_F(ObjectPointTest, RoleFollowsStandardDeviations) {
  const double beyond = std::nextafter(1e30, 1e31);
  ObjectPoint point;
  point.std_devs = {beyond, beyond, beyond};
  point.classify();
  EXPECT_EQ(point.type, PointType::intersection);
  for (const double observed : {1e30, std::nan("")}) {
    point.std_devs[1] = observed;
    point.classify();
    EXPECT_EQ(point.type, PointType::control);
  }
}

// Counted is the role that point a has in the end.
TEST_F(ObjectPointTest, ControlSupportFileAcceptsAndRejects) {
  constexpr const char* kNoEnd = "ERROR: Object point ID  not exist.\n";
  expect_reader(
      {
          {"", -1, 2, kNoEnd},
          {"a co xyz\n", -1, 1, kNoEnd},
          {"-1 a co x", 1, 2, ""},
          {"# c\n  # d\r\n\n #\na co xyz # e\n stop-dep", 1, 1, ""},
          {"a co xyz a in -1", 1, 2, ""},
          {"a co none -1", 1, 1, ""},
          {"a", -1, 2,
           "ERROR: Cannot read object point type.\nERROR: Set std. dev. from CS failed.\n"},
          {"a nu x -1", -1, 2,
           "ERROR: Invalid object point type: nu\nERROR: Set std. dev. from CS failed.\n"},
          {"a ch", -1, 2, "ERROR: Set std. dev. from CS failed.\n"},
          {"x co xy -1", -1, 2, "ERROR: Object point ID x not exist.\n"},
          // A record is read whole before its point is looked up.
          {"x co", -1, 2, "ERROR: Set std. dev. from CS failed.\n"},
      },
      [&](TokenReader& in, int& count) {
        OwnedList<ObjectPoint> points;
        TokenReader coords("common-sdev 1e31 1e31 1e31 a 1 2 3");
        read_obj_crds(coords, points);
        const int result = read_ctrl_supp(in, points);
        count = static_cast<int>(points[0]->type);
        return result;
      });
}

TEST_F(ObjectPointTest, ControlSupportMarksComponents) {
  struct Case {
    const char* record;
    Vec3 std_devs;
    bool check[3];
  };
  ls_params().sminu = 1e-40;
  ls_params().smaxu = 1e40;
  const Case cases[] = {
      {"a co xy -1", {1e-40, 1e-40, 1e40}, {false, false, false}},
      {"a co abz! -1", {1e40, 1e40, 1e-40}, {false, false, false}},
      {"a co XYZ -1", {1e40, 1e40, 1e40}, {false, false, false}},
      {"a ch zx -1", {1e40, 1e40, 1e40}, {true, false, true}},
      {"a ch xyz a ch y -1", {1e40, 1e40, 1e40}, {false, true, false}},
      {"a ch xyz a co y -1", {1e40, 1e-40, 1e40}, {false, false, false}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.record);
    OwnedList<ObjectPoint> points;
    TokenReader coords("common-sdev 1 1 1 a 1 2 3");
    read_obj_crds(coords, points);
    TokenReader in(c.record);
    EXPECT_EQ(read_ctrl_supp(in, points), 1);
    EXPECT_EQ(points[0]->std_devs, c.std_devs);
    for (std::size_t k = 0; k < 3; ++k) EXPECT_EQ(points[0]->check[k], c.check[k]);
  }
}

}  // namespace
}  // namespace vorn
