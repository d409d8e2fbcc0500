#include "sensors/camera.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace vorn
