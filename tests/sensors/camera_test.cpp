#include "sensors/camera.h"

#include <gtest/gtest.h>

#include <memory>

#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"
#include "support/reader_cases.h"

namespace vorn {
namespace {

using test::expect_reader;

constexpr const char* kFrame = "camera-frame F note 150 (0.02,-0.01) 230 220 ";
constexpr const char* kCcd = "camera-ccd C note 50 0.1 0.2 1000 800 5 10 ";
constexpr const char* kCcdTr = "camera-ccd-tr T note 50 0.1 0.2 1000 800 5 10 ";
constexpr const char* kPushbroom = "camera-pushbroom P note 80 0 0 1001 5 10 1.5 ";

std::unique_ptr<Camera> camera_of(std::string_view record) {
  OwnedList<Camera> cameras;
  TokenReader in(record);
  EXPECT_EQ(read_camera_file(in, cameras), 1);
  EXPECT_EQ(cameras.num_slots(), 1);
  return cameras.take_out(0);
}

TEST(CameraConversion, PixelToImageSdevAndBack) {
  struct Case {
    const char* record;
    Pair pixel, image, sdev, back;
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.record << c.pixel[0] << ' ' << c.pixel[1]);
    const std::unique_ptr<Camera> camera = camera_of(c.record);
    const Pair image = camera->pixel_to_image(c.pixel);
    const Pair sdev = camera->sdev_to_image({3, 4});
    const Pair back = camera->image_to_pixel(image);
    for (std::size_t k = 0; k < 2; ++k) {
      EXPECT_NEAR(image[k], c.image[k], 1e-15);
      EXPECT_NEAR(sdev[k], c.sdev[k], 1e-15);
      EXPECT_NEAR(back[k], c.back[k], 1e-9);
    }
  }
}

TEST(CameraFile, AcceptsAndRejects) {
  constexpr const char* kFailed = "ERROR: Reading camera F failed.\n";
  expect_reader(
      {
          {"", 1, 0, ""},
          {"\n stop-dep rubbish", 1, 0, ""},
          {"camera-frame F c 150 0 0 230 230 camera-frame F d 99 0 0 1 1 stop-dep x", 1, 2, ""},
          {"camera-ccd F c 50 0 0 10 20 5 5\r\ncamera-pushbroom P c 50 0 0 10 5 5", 1, 2, ""},
          {"camera-pushbroom P c 50 0 0 10 5 5 here stop-dep junk", 1, 1, ""},
          {"camera-frame F c 150 0 0 230 230 Camera-frame", -1, 1,
           "ERROR: Unknown camera type: Camera-frame\n"},
          {"camera-frame", -1, 0, "ERROR: Reading camera  failed.\n"},
          {"camera-frame F c 150 (0;0) 230 230", -1, 0, kFailed},
          {"camera-frame F c 150 0 0 230", -1, 0, kFailed},
          {"camera-ccd F c 50 0 0 10.5 20 5 5", -1, 0, kFailed},
          {"camera-ccd-tr F c 50 0 0 99999999999 20 5 5", -1, 0, kFailed},
          {"camera-pushbroom F c 50 0 0 10 5", -1, 0, kFailed},
      },
      [&](TokenReader& in, int& count) {
        OwnedList<Camera> cameras;
        const int result = read_camera_file(in, cameras);
        count = cameras.count();
        // Of equal identifiers the first is found.
        if (count == 2) {
          EXPECT_EQ(cameras.find("F")->comment, "c");
        }
        return result;
      });
}

}  // namespace
}  // namespace vorn
