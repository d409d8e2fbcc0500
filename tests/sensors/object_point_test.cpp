#include "sensors/object_point.h"

#include <cmath>

#include "support/captured_output.h"

namespace vorn {
namespace {

TEST(ObjectPoint, RepeatedRecordsAndFilesOverwriteInPlace) {
  OwnedList<ObjectPoint> points;
  TokenReader first("common-sdev 1e31 1e31 1e31 a 1 2 3 b (4,5)");
  TokenReader second("indiv-sdev a 7 8 9 .1 .2 .3");
  EXPECT_EQ(test::captured_output([&] {
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

TEST(ObjectPoint, RoleFollowsStandardDeviations) {
  const double beyond = std::nextafter(1e30, 1e31);
  for (const double sdev : {1e30, beyond, std::nan("")}) {
    ObjectPoint point;
    point.std_devs = {beyond, sdev, beyond};
    point.classify();
    EXPECT_EQ(point.type, sdev > 1e30 ? PointType::intersection : PointType::control);
  }
}

TEST(ObjectPoint, ControlSupportMarksComponents) {
  ls_params().sminu = 1e-40;
  ls_params().smaxu = 1e40;
  const struct {
    const char* record;
    Vec3 std_devs;
    bool check[3];
  } cases[] = {
      {"a co xy -1", {1e-40, 1e-40, 1e40}, {false, false, false}},
      {"a co abz! -1", {1e40, 1e40, 1e-40}, {false, false, false}},
      {"a co XYZ -1", {1e40, 1e40, 1e40}, {false, false, false}},
      {"a ch zx -1", {1e40, 1e40, 1e40}, {true, false, true}},
      {"a ch xyz a ch y -1", {1e40, 1e40, 1e40}, {false, true, false}},
      {"a ch xyz a co y -1", {1e40, 1e-40, 1e40}, {false, false, false}},
  };
  for (const auto& c : cases) {
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

TEST(ObjectPoint, ConvergenceOfCoordinates) {
  const double nan = std::nan("");
  const struct {
    double change[3];
    int first;
  } cases[] = {{{0.25, -0.25, 0}, -1},
               {{0.3, 0.3, 0}, 0},
               {{0, -0.3, 0.3}, 1},
               {{0, 0, 0.2501}, 2},
               {{nan, nan, nan}, -1}};
  ObjectPoint point;
  point.index = 1;
  ls_params().limit_points = 0.25;
  for (const auto& c : cases) {
    Vector corrections(4);
    corrections[0] = 9;
    for (std::int32_t k = 0; k < 3; ++k) corrections[1 + k] = c.change[k];
    ls_params().check_points = true;
    EXPECT_EQ(point.check_convergence(corrections), c.first);
    ls_params().check_points = false;
    EXPECT_EQ(point.check_convergence(corrections), -1);
  }
}

}  // namespace
}  // namespace vorn
