#include "sensors/object_point.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/captured_output.h"
#include "support/ls_params_guard.h"

namespace vorn {
namespace {

using test::captured_output;
using test::written_text;

class ObjectPointTest : public testing::Test {
  test::LSParamsGuard defaults_;
};

TEST_F(ObjectPointTest, CoordinateFileAcceptsAndRejects) {
  struct Case {
    const char* text;
    int result;
    int count;
    const char* output;
  };
  const Case cases[] = {
      {"", -1, 0, ""},
      {" \n", -1, 0, ""},
      {"stop-dep", -1, 0, "ERROR: Unknown file type: stop-dep\n"},
      {"indiv-sdev", 1, 0, ""},
      {"common-sdev 1 1 1", 1, 0, ""},
      {"common-sdev (1,2)\na 1 2 3\nb (4) -1 c", 1, 2, ""},
      {"indiv-sdev a 1 2 3 4 5 6 b (1,2,3)(4,5,6) stop-dep c", 1, 2, ""},
      {"indiv-sdev a 1 2 3 4 5 6 b 1 2 3 4 5 6 a 7 8 9 1 1 1", 1, 2,
       "ATTENTION: Object point a replaced.\n"},
      {"common-sdev", -1, 0, "ERROR: Reading common std. dev. failed.\n"},
      {"common-sdev 1 1 a", -1, 0, "ERROR: Reading common std. dev. failed.\n"},
      {"common-sdev 1 1 1 a 1 2", -1, 0, "ERROR: Reading coords. failed.\n"},
      {"common-sdev 1 1 1 a 1 2 3 a 1 2", -1, 1, "ERROR: Reading coords. failed.\n"},
      {"common-sdev 1 1 1 a (1,2;3)", -1, 0, "ERROR: Reading coords. failed.\n"},
      {"common-sdev 1 1 1 a (1,2,3 4", -1, 0, "ERROR: Reading coords. failed.\n"},
      {"indiv-sdev a 1 2 3", -1, 0, "ERROR: Reading std. dev. failed.\n"},
      {"indiv-sdev a 1 2 3 1 1 1 b 1 2 3 1 1 -1", 1, 2, ""},
      {"indiv-sdev a 1 2 3 1 1 1 b 1 2 3 1 1 stop-dep", -1, 1,
       "ERROR: Reading std. dev. failed.\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<ObjectPoint> points;
    TokenReader in(c.text);
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_obj_crds(in, points), c.result); }), c.output);
    EXPECT_EQ(points.count(), c.count);
  }
}

TEST_F(ObjectPointTest, RepeatedRecordsAndFilesOverwriteInPlace) {
  OwnedList<ObjectPoint> points;
  TokenReader first("common-sdev 1e31 1e31 1e31 a 1 2 3 b (4,5)");
  TokenReader second("indiv-sdev a 7 8 9 .1 .2 .3");
  captured_output([&] {
    read_obj_crds(first, points);
    read_obj_crds(second, points);
  });
  EXPECT_EQ(points[0]->xyz, (Vec3{7, 8, 9}));
  EXPECT_EQ(points[0]->std_devs, (Vec3{.1, .2, .3}));
  EXPECT_EQ(points[0]->type, PointType::control);
  EXPECT_EQ(points[1]->xyz, (Vec3{4, 5, 0}));
  EXPECT_EQ(points[1]->type, PointType::intersection);
  EXPECT_TRUE(points[1]->has_coords);
}

TEST_F(ObjectPointTest, RoleFollowsStandardDeviations) {
  struct Case {
    Vec3 std_devs;
    PointType type;
  };
  const double beyond = std::nextafter(1e30, 1e31);
  const Case cases[] = {
      {{1e31, 1e31, 1e31}, PointType::intersection},
      {{beyond, beyond, beyond}, PointType::intersection},
      {{1e30, 1e30, 1e30}, PointType::control},
      {{1e31, 1e31, 1e30}, PointType::control},
      {{1e31, std::nan(""), 1e31}, PointType::control},
      {{0, 0, 0}, PointType::control},
  };
  for (const Case& c : cases) {
    ObjectPoint point;
    point.std_devs = c.std_devs;
    point.check[1] = true;
    point.classify();
    EXPECT_EQ(point.type, c.type) << c.std_devs[1];
    EXPECT_FALSE(point.check[1]);
  }
}

// `role` is what point a has in the end.
TEST_F(ObjectPointTest, ControlSupportFileAcceptsAndRejects) {
  constexpr const char* kNoEnd = "ERROR: Object point ID  not exist.\n";
  struct Case {
    const char* text;
    int result;
    int role;
    const char* output;
  };
  const Case cases[] = {
      {"", -1, 2, kNoEnd},
      {"# only a comment", -1, 2, kNoEnd},
      {"a co xyz", -1, 1, kNoEnd},
      {"a co xyz\n", -1, 1, kNoEnd},
      {"stop-dep", 1, 2, ""},
      {"-1 a co x", 1, 2, ""},
      {"# c\n  # d\r\n\n #\na co xyz # e\n stop-dep", 1, 1, ""},
      {"#a co xyz\na ch z -1", 1, 3, ""},
      {"a co xyz a in -1", 1, 2, ""},
      {"a co none -1", 1, 1, ""},
      {"a", -1, 2, "ERROR: Cannot read object point type.\nERROR: Set std. dev. from CS failed.\n"},
      {"a nu x -1", -1, 2,
       "ERROR: Invalid object point type: nu\nERROR: Set std. dev. from CS failed.\n"},
      {"a ch", -1, 2, "ERROR: Set std. dev. from CS failed.\n"},
      {"x co xy -1", -1, 2, "ERROR: Object point ID x not exist.\n"},
      // A record is read whole before its point is looked up.
      {"x co", -1, 2, "ERROR: Set std. dev. from CS failed.\n"},
      {"x CO xy", -1, 2,
       "ERROR: Invalid object point type: CO\nERROR: Set std. dev. from CS failed.\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<ObjectPoint> points;
    TokenReader coords("common-sdev 1e31 1e31 1e31 a 1 2 3");
    read_obj_crds(coords, points);
    TokenReader in(c.text);
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_ctrl_supp(in, points), c.result); }), c.output);
    EXPECT_EQ(static_cast<int>(points[0]->type), c.role);
  }
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
      {"a co yx -1", {1e-40, 1e-40, 1e40}, {false, false, false}},
      {"a co abz! -1", {1e40, 1e40, 1e-40}, {false, false, false}},
      {"a co XYZ -1", {1e40, 1e40, 1e40}, {false, false, false}},
      {"a in -1", {1e40, 1e40, 1e40}, {false, false, false}},
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
  ObjectPoint point;
  EXPECT_EQ(captured_output([&] { EXPECT_EQ(point.set_from_cs(ControlSupport()), -1); }),
            "ERROR: Invalid object point type: 0\n");
}

TEST_F(ObjectPointTest, TypeNamesRememberTheLastOne) {
  EXPECT_EQ(point_type_name(PointType::none), "nu");
  EXPECT_EQ(point_type_name(PointType::check), "ch");
  EXPECT_EQ(point_type_name(static_cast<PointType>(-1)), "ch");
  EXPECT_EQ(point_type_name(PointType::intersection), "in");
  EXPECT_EQ(point_type_name(static_cast<PointType>(4)), "in");
}

TEST_F(ObjectPointTest, ReportAndResultLines) {
  ls_params().unit_object.factor = 2;
  ObjectPoint point;
  point.id = "P1";
  point.xyz = {1234.5678, -2, 1e8};
  point.std_devs = {1e-31, 0.25, 1e31};
  point.type = PointType::control;
  EXPECT_EQ(written_text([&](TextWriter& out) { point.print_line(out); }),
            "      P1    1234.568      -2.000 100000000.000   1.0e-31     0.500   1.0e+31   co\n");
  EXPECT_EQ(
      written_text([&](TextWriter& out) { point.write_line(out); }),
      "        P1    1234.568      -2.000 100000000.000     1.0e-31       0.500     1.0e+31\n");
}

TEST_F(ObjectPointTest, ListingOfChanges) {
  ObjectPoint point;
  point.id = "P1";
  point.xyz = {1, 2, 3};
  point.std_devs = {1e31, 0.5, 0};
  point.init_params();
  point.index = 3;
  Vector corrections(6);
  corrections.zero();
  corrections[3] = 0.5;
  corrections[5] = -1;
  EXPECT_EQ(written_text([&](TextWriter& out) { point.print_changes(out, corrections); }),
            "Point ID : P1\nIndex    : 3\n\n"
            "  Name       State       Approx.         Change       Adjusted\n\n"
            "  objc-X     unk       1.000e+00      5.000e-01      1.500e+00\n"
            "  objc-Y     obs       2.000e+00      0.000e+00      2.000e+00\n"
            "  objc-Z     eli       3.000e+00     -1.000e+00      2.000e+00\n\n");
}

TEST_F(ObjectPointTest, ConvergenceOfCoordinates) {
  struct Case {
    double x, y, z;
    int first;
  };
  const double nan = std::nan("");
  const Case cases[] = {{0, 0, 0, -1},     {0.25, -0.25, 0, -1}, {0.3, 0.3, 0, 0},
                        {0, -0.3, 0.3, 1}, {0, 0, 0.2501, 2},    {nan, nan, nan, -1}};
  ObjectPoint point;
  point.index = 1;
  Vector corrections(4);
  ls_params().limit_points = 0.25;
  for (const Case& c : cases) {
    corrections[0] = 9;
    corrections[1] = c.x;
    corrections[2] = c.y;
    corrections[3] = c.z;
    ls_params().check_points = true;
    EXPECT_EQ(point.check_convergence(corrections), c.first) << c.x << ' ' << c.y << ' ' << c.z;
    ls_params().check_points = false;
    EXPECT_EQ(point.check_convergence(corrections), -1);
  }
}

}  // namespace
}  // namespace vorn
