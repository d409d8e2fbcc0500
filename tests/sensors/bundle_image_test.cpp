#include "sensors/bundle_image.h"

#include <gtest/gtest.h>

#include "sensors/camera_ccd.h"
#include "support/captured_output.h"
#include "support/reader_cases.h"

namespace vorn {
namespace {

using test::captured_output;
using test::expect_reader;
using test::written_text;

// Two images F1 and C1, with a frame and a CCD camera.
struct Images {
  Images() {
    TokenReader camera_text(
        "camera-frame F - 100 0 0 200 200 camera-ccd C - 50 0 0 101 101 10 10 "
        "camera-frame F late 1 0 0 1 1");
    read_camera_file(camera_text, cameras);
    TokenReader image_text("image-frame F1 G F image-frame C1 G C");
    read_image_file(image_text, images, cameras);
  }
  OwnedList<Camera> cameras;
  OwnedList<BundleImage> images;
};

TEST(ImageFile, AcceptsAndRejects) {
  expect_reader(
      {
          {"", 1, 0, ""},
          {"image-frame I G F image-frame I G C stop-dep x", 1, 2, ""},
          {"image-frame I G F -1", -1, 1, "ERROR: Unknown image type: -1\n"},
          {"image-frame", -1, 0, "ERROR: Reading image  failed.\n"},
          {"image-frame I G X image-frame J G F", -1, 0,
           "ERROR: Attach camera X for image I not failed.\nERROR: Reading image I failed.\n"},
      },
      [&](TokenReader& in, int& count) {
        Images fixture;
        OwnedList<BundleImage> images;
        const int result = read_image_file(in, images, fixture.cameras);
        count = images.count();
        return result;
      });
  // The first camera of the name is bound, and images without orientation stay unused.
  Images fixture;
  EXPECT_EQ(fixture.images[0]->camera, fixture.cameras[0]);
  EXPECT_TRUE(fixture.cameras[0]->used && !fixture.cameras[2]->used);
  EXPECT_FALSE(fixture.images[0]->attach_geometry(OwnedList<ImageGeometry>()));
}

TEST(ImageCoordsFile, AcceptsAndRejects) {
  constexpr const char* kFailed = "ERROR: BundleImage F1 read image coords. failed.\n";
  expect_reader(
      {
          {"", 1, 0, ""},
          {"-1 F1", 1, 0, ""},
          {"F1 0.001 -1 C1 1 stop-dep stop-dep F1", 1, 0, ""},
          {"F1 1 a 1 2 3 4 b (1,2) (3) -1 C1 1 a 1 2 3 4", 1, 3, ""},
          {"F1 1 a 1 2 3 4 -1 F1 1 b 1 2 3 4 -1", 1, 2, ""},
          {"F1 1 a 1 2 3 4 b 1 2 3 4 a 5 6 7 8", 1, 2,
           "ATTENTION: BundleImage F1 point a was replaced.\n"},
          {"F1 1 -1 -2", -1, 0, "ERROR: BundleImage -2 not found.\n"},
          {"F1", -1, 0, kFailed},
          {"F1 a 1 2 3 4", -1, 0, kFailed},
          {"F1 1 a 1 2 3", -1, 0, kFailed},
          {"F1 1 a 1 2 3 4 b (1;2) 3 4", -1, 1, kFailed},
      },
      [&](TokenReader& in, int& count) {
        Images fixture;
        const int result = read_image_crds_file(in, fixture.images);
        count = fixture.images[0]->count_points() + fixture.images[1]->count_points();
        return result;
      });
}

TEST(ImageCoordsText, Written) {
  Images fixture;
  TokenReader in("F1 0.1 12 -1000 2.25 3.e-3 0.4 long-name-1 1e5 20 (1) -1 C1 10 12 1 2.5 .03 .04");
  ASSERT_EQ(read_image_crds_file(in, fixture.images), 1);
  EXPECT_EQ(written_text([&](TextWriter& out) {
              for (BundleImage& image : fixture.images)
                image.camera->write_image_coords(out, image);
            }),
            "F1   1e-06\n"
            "      12    -0.0001     0.0000   0.0000   0.0000\n"
            "long-name-1     0.0100     0.0000   0.0000   0.0000\n\n"
            "C1   1e-06\n      12     0.0000     0.0000   0.0000   0.0000\n\n");
}

TEST(ImagePoints, ReplacedInTheirSlotAndRemovedWithoutMovingOthers) {
  Images fixture;
  BundleImage& image = *fixture.images[0];
  TokenReader in("1 a 1 0 0 0 b 2 0 0 0 a 3 0 0 0 c 4 0 0 0");
  captured_output([&] { image.camera->read_image_coords(in, image); });
  EXPECT_EQ(image.points[0]->x, 3);
  EXPECT_TRUE(image.remove_point("b"));
  EXPECT_FALSE(image.remove_point("b"));
  EXPECT_EQ(image.index_of_point("c"), 2);
  EXPECT_EQ(image.index_of_point("b"), -1);
}

}  // namespace
}  // namespace vorn
