#include "sensors/camera.h"

#include <gtest/gtest.h>

#include <limits>

#include "calibration/ap_set.h"
#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::written_text;

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
      {kPushbroom, {500, -3e300}, {1.5e-3, 0}, {15e-6, 40e-6}, {500, 0}},
      {kPushbroom, {500, 3e9}, {1.5e-3, 0}, {15e-6, 40e-6}, {500, 0}},
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

TEST(CameraConversion, ArrayCentreOfAbsurdCounts) {
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(array_centre(0), -0.5);
  EXPECT_EQ(array_centre(kLowest), -1073741824.5);
}

struct FileCase {
  const char* text;
  int result;
  int count;
  const char* output;
};

TEST(CameraFile, AcceptsAndRejects) {
  const FileCase cases[] = {
      {"", 1, 0, ""},
      {"\n \t", 1, 0, ""},
      {"stop-dep rubbish", 1, 0, ""},
      {"camera-frame F c 150 0 0 230 230", 1, 1, ""},
      {"camera-frame F c 150 0 0 230 230 camera-frame F d 99 0 0 1 1 stop-dep x", 1, 2, ""},
      {"camera-ccd F c 50 0 0 10 20 5 5\r\ncamera-pushbroom P c 50 0 0 10 5 5", 1, 2, ""},
      {"camera-pushbroom P c 50 0 0 10 5 5 here stop-dep junk", 1, 1, ""},
      {"camera F", -1, 0, "ERROR: Unknown camera type: camera\n"},
      {"camera-frame F c 150 0 0 230 230 Camera-frame", -1, 1,
       "ERROR: Unknown camera type: Camera-frame\n"},
      {"camera-frame", -1, 0, "ERROR: Reading camera  failed.\n"},
      {"camera-frame F", -1, 0, "ERROR: Reading camera F failed.\n"},
      {"camera-frame F c 150 (0;0) 230 230", -1, 0, "ERROR: Reading camera F failed.\n"},
      {"camera-frame F c 150 (0,0 230 230", -1, 0, "ERROR: Reading camera F failed.\n"},
      {"camera-frame F c 150 0 0 230", -1, 0, "ERROR: Reading camera F failed.\n"},
      {"camera-ccd F c 50 0 0 10.5 20 5 5", -1, 0, "ERROR: Reading camera F failed.\n"},
      {"camera-ccd-tr F c 50 0 0 99999999999 20 5 5", -1, 0, "ERROR: Reading camera F failed.\n"},
      {"camera-pushbroom P c 50 0 0 10 5", -1, 0, "ERROR: Reading camera P failed.\n"},
  };
  for (const FileCase& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<Camera> cameras;
    TokenReader in(c.text);
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_camera_file(in, cameras), c.result); }),
              c.output);
    EXPECT_EQ(cameras.count(), c.count);
  }
}

TEST(CameraFile, EqualIdentifiersStayAndTheFirstIsFound) {
  OwnedList<Camera> cameras;
  TokenReader in("camera-frame F first 1 (12.5) 1 1 camera-frame F second 2 0 0 1 1");
  read_camera_file(in, cameras);
  EXPECT_EQ(cameras.find("F")->comment, "first");
  EXPECT_EQ(cameras[1]->comment, "second");
  EXPECT_DOUBLE_EQ(cameras[0]->xp, 0.0125);
  EXPECT_EQ(cameras[0]->yp, 0.0);
}

TEST(CameraText, ReportBlockAndRecord) {
  struct Case {
    const char* record;
    const char* block;
    const char* written;
  };
  const Case cases[] = {
      {kFrame,
       "Camera ID          :  F\nCamera type        :  frame\nComment            :  note\n"
       "Coord. system type :  image\n"
       "Focal length       :  f  =   150.0000 mm\n"
       "Principal point    :  xp =     0.0200 mm      yp =    -0.0100 mm\n"
       "BundleImage format       :  sx =   230.0000 mm      sy =   220.0000 mm\n\n",
       "frame   F   note\n  150.000000     0.020000    -0.010000\n"
       "  230.000000   220.000000\n"},
      {kCcdTr,
       "Camera ID          :  T\nCamera type        :  CCD-frame (top-right)\n"
       "Comment            :  note\nCoord. system type :  pixel (top-left)\n"
       "Focal length       :  f  =    50.0000 mm\n"
       "Principal point    :  xp =     0.1000 mm      yp =     0.2000 mm\n"
       "BundleImage format       :  sx =     8.0000 mm      sy =     5.0000 mm\n\n"
       "Number of pixel    :  nc =       1000 pix     nr =        800 pix\n"
       "ICS location       :  c0 =    499.500 pix     r0 =    399.500 pix\n"
       "Pixel spacing      :  sc =      5.000 um/pix  sr =     10.000 um/pix\n\n",
       "ccd-frame   T   note\n   50.000000     0.100000     0.200000\n"
       "    8.000000     5.000000\n1000 800\n 5.000 10.000\n"},
      {"camera-ccd C note 50 0 0 1000000 0 1 1",
       "Camera ID          :  C\nCamera type        :  CCD-frame\n"
       "Comment            :  note\nCoord. system type :  pixel (top-left)\n"
       "Focal length       :  f  =    50.0000 mm\n"
       "Principal point    :  xp =     0.0000 mm      yp =     0.0000 mm\n"
       "BundleImage format       :  sx =  1000.0000 mm      sy =     0.0000 mm\n\n"
       "Number of pixel    :  nc =      1e+06 pix     nr =          0 pix\n"
       "ICS location       :  c0 = 499999.500 pix     r0 =     -0.500 pix\n"
       "Pixel spacing      :  sc =      1.000 um/pix  sr =      1.000 um/pix\n\n",
       "ccd-frame   C   note\n   50.000000     0.000000     0.000000\n"
       " 1000.000000     0.000000\n1000000 0\n 1.000  1.000\n"},
      {kPushbroom,
       "Camera ID          :  P\nCamera type        :  pushbroom\nComment            :  note\n"
       "Coord. system type :  pixel (top-left)\n"
       "Focal length       :  f  =    80.0000 mm\n"
       "Principal point    :  xp =     0.0000 mm      yp =     0.0000 mm\n"
       "BundleImage format       :  sx =     0.0000 mm      sy =     5.0050 mm\n\n"
       "Number of pixels   :  nc =       1001\n"
       "Pixel size         :  sc =      5.000 um/pix  sr =     10.000 um/pix\n"
       "CCD line position  :  x0 =      1.500 mm\n\n",
       ""},
  };
  for (const Case& c : cases) {
    const std::unique_ptr<Camera> camera = camera_of(c.record);
    EXPECT_EQ(written_text([&](TextWriter& out) { camera->print(out); }), c.block);
    EXPECT_EQ(written_text([&](TextWriter& out) { camera->write(out); }), c.written);
  }
}

// dx = a1 * x, dy = a1 * z: shows at which point a correction is taken.
class ScaleSet : public APSet {
 public:
  explicit ScaleSet(double a1) : APSet(1) {
    value(0) = a1;
    std_dev(0) = 1e31;
  }
  void get_derivs(const Vec3& point, DesignBlock& block) const override {
    block.a.resize(2, 1);
    block.a[0][0] = point[0];
    block.a[1][0] = point[2];
  }
};

TEST(CameraCorrections, SumOfSetsAtTheReducedPoint) {
  const std::unique_ptr<Camera> camera = camera_of(kFrame);
  EXPECT_EQ(camera->get_corrections({1, 2, 3}), (Pair{0, 0}));
  ScaleSet first(0.5);
  ScaleSet second(0.25);
  first.index = 7;
  second.index = 8;
  camera->ap_sets = {&first, nullptr, &second};
  EXPECT_EQ(camera->get_corrections({1, 2, 4}), (Pair{0.75, 3}));

  const Vec3 vector = camera->image_to_camera({0.02002, 0.03});
  EXPECT_NEAR(vector[0], 0.25 * 0.02, 1e-15);
  EXPECT_NEAR(vector[1], 0.03001 + 0.75 * 0.15, 1e-15);
  EXPECT_EQ(vector[2], -camera->c);
  const Pair image = camera->camera_to_image({0.02, 0.03, -0.15});
  EXPECT_NEAR(image[0], 0.00002 + 1.75 * 0.02, 1e-15);
  EXPECT_NEAR(image[1], -0.00001 + 0.03 - 0.75 * 0.15, 1e-15);

  std::vector<DesignBlock> blocks(3);
  EXPECT_EQ(captured_errors([&] {
              camera->get_derivs({1, 2, 4}, blocks);
            }),
            "ERROR: Camera::get_derivs: null pointer!\n");
  EXPECT_EQ(blocks[0].index, 7);
  EXPECT_EQ(blocks[2].index, 8);
  EXPECT_EQ(blocks[2].a[1][0], 4);
}

}  // namespace
}  // namespace vorn
