// Cameras, images and object points; tests/readers_test.cpp reads their files.

#include <gtest/gtest.h>

#include <cmath>

#include "sensors/bundle_image.h"
#include "sensors/camera.h"
#include "sensors/object_point.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

constexpr const char* kFrame = "camera-frame F note 150 (0.02,-0.01) 230 220 ";
constexpr const char* kCcd = "camera-ccd C note 50 0.1 0.2 1000 800 5 10 ";
constexpr const char* kCcdTr = "camera-ccd-tr T note 50 0.1 0.2 1000 800 5 10 ";
constexpr const char* kPushbroom = "camera-pushbroom P note 80 0 0 1001 5 10 1.5 ";

TEST(CameraConversion, PixelToImageSdevAndBack) {
  const struct {
    const char* record;
    Pair pixel, image, sdev, back;
  } cases[] = {
      {kFrame, {0.01, -0.02}, {0.01, -0.02}, {3, 4}, {0.01, -0.02}},
      {kCcd, {499.5, 399.5}, {0, 0}, {15e-6, 40e-6}, {499.5, 399.5}},
      {kCcd, {0, 0}, {-499.5 * 5e-6, 399.5 * 10e-6}, {15e-6, 40e-6}, {0, 0}},
      {kCcdTr, {0, 0}, {399.5 * 10e-6, 499.5 * 5e-6}, {30e-6, 20e-6}, {0, 0}},
      {kCcdTr, {999, 10}, {389.5 * 10e-6, -499.5 * 5e-6}, {30e-6, 20e-6}, {999, 10}},
      // Of the row of a line camera only the offset from the nearest line is left.
      {kPushbroom, {500, 10}, {1.5e-3, 0}, {15e-6, 40e-6}, {500, 0}},
      {kPushbroom, {0, 10.4}, {0.4 * 10e-6 + 1.5e-3, -500 * 5e-6}, {15e-6, 40e-6}, {0, 0.4}},
      {kPushbroom, {0, 10.6}, {-0.4 * 10e-6 + 1.5e-3, -500 * 5e-6}, {15e-6, 40e-6}, {0, -0.4}},
      {kPushbroom, {0, -0.7}, {-0.7 * 10e-6 + 1.5e-3, -500 * 5e-6}, {15e-6, 40e-6}, {0, -0.7}},
      {kPushbroom, {500, 3e300}, {1.5e-3, 0}, {15e-6, 40e-6}, {500, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.record << c.pixel[0] << ' ' << c.pixel[1]);
    OwnedList<Camera> cameras;
    TokenReader in(c.record);
    ASSERT_EQ(read_camera_file(in, cameras), 1);
    const Pair image = cameras[0]->pixel_to_image(c.pixel);
    const Pair sdev = cameras[0]->sdev_to_image({3, 4});
    const Pair back = cameras[0]->image_to_pixel(image);
    for (std::size_t k = 0; k < 2; ++k) {
      EXPECT_NEAR(image[k], c.image[k], 1e-15);
      EXPECT_NEAR(sdev[k], c.sdev[k], 1e-15);
      EXPECT_NEAR(back[k], c.back[k], 1e-9);
    }
  }
}

// No run writes these.
TEST(ImageCoords, AreWritten) {
  OwnedList<Camera> cameras;
  OwnedList<BundleImage> images;
  TokenReader camera_text("camera-frame F - 100 0 0 200 200 camera-ccd C - 50 0 0 101 101 10 10");
  TokenReader image_text("image-frame F1 G F image-frame C1 G C");
  TokenReader in("F1 0.1 12 -1000 2.25 3.e-3 0.4 long-name-1 1e5 20 (1) -1 C1 10 12 1 2.5 .03 .04");
  ASSERT_EQ(read_camera_file(camera_text, cameras), 1);
  ASSERT_EQ(read_image_file(image_text, images, cameras), 1);
  ASSERT_EQ(read_image_crds_file(in, images), 1);
  EXPECT_EQ(test::written_text([&](TextWriter& out) {
              for (BundleImage& image : images) image.camera->write_image_coords(out, image);
            }),
            "F1   1e-06\n"
            "      12    -0.0001     0.0000   0.0000   0.0000\n"
            "long-name-1     0.0100     0.0000   0.0000   0.0000\n\n"
            "C1   1e-06\n      12     0.0000     0.0000   0.0000   0.0000\n\n");
}

TEST(ObjectPoint, RoleFollowsStandardDeviations) {
  const double beyond = std::nextafter(1e30, 1e31);
  for (const double sdev : {1e30, beyond, std::nan("")}) {
    for (std::size_t k = 0; k < 3; ++k) {
      ObjectPoint point;
      point.std_devs = {beyond, beyond, beyond};
      point.std_devs[k] = sdev;
      point.classify();
      EXPECT_EQ(point.type, sdev > 1e30 ? PointType::intersection : PointType::control) << k;
    }
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
    EXPECT_EQ(read_obj_crds(coords, points), 1);
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
