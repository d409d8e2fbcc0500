#include "sensors/bundle_image.h"

#include "support/captured_output.h"

namespace vorn {
namespace {

// Two images F1 and C1, with a frame and a CCD camera; the first camera of a name is bound.
class BundleImageTest : public testing::Test {
 protected:
  BundleImageTest() {
    TokenReader camera_text(
        "camera-frame F - 100 0 0 200 200 camera-ccd C - 50 0 0 101 101 10 10 "
        "camera-frame F late 1 0 0 1 1");
    read_camera_file(camera_text, cameras_);
    TokenReader image_text("image-frame F1 G F image-frame C1 G C");
    read_image_file(image_text, images_, cameras_);
  }
  OwnedList<Camera> cameras_;
  OwnedList<BundleImage> images_;
};

TEST_F(BundleImageTest, BindsTheFirstCameraAndWritesCoordinates) {
  EXPECT_EQ(images_[0]->camera, cameras_[0]);
  EXPECT_TRUE(cameras_[0]->used && !cameras_[2]->used);
  EXPECT_FALSE(images_[0]->attach_geometry(OwnedList<ImageGeometry>()));
  TokenReader in("F1 0.1 12 -1000 2.25 3.e-3 0.4 long-name-1 1e5 20 (1) -1 C1 10 12 1 2.5 .03 .04");
  ASSERT_EQ(read_image_crds_file(in, images_), 1);
  EXPECT_EQ(test::written_text([&](TextWriter& out) {
              for (BundleImage& image : images_) image.camera->write_image_coords(out, image);
            }),
            "F1   1e-06\n"
            "      12    -0.0001     0.0000   0.0000   0.0000\n"
            "long-name-1     0.0100     0.0000   0.0000   0.0000\n\n"
            "C1   1e-06\n      12     0.0000     0.0000   0.0000   0.0000\n\n");
}

TEST_F(BundleImageTest, ReplacesPointsInTheirSlotAndRemovesWithoutMovingOthers) {
  BundleImage& image = *images_[0];
  TokenReader in("1 a 1 0 0 0 b 2 0 0 0 a 3 0 0 0 c 4 0 0 0");
  test::captured_output([&] { image.camera->read_image_coords(in, image); });
  EXPECT_EQ(image.points[0]->x, 3);
  EXPECT_TRUE(image.remove_point("b"));
  EXPECT_FALSE(image.remove_point("b"));
  EXPECT_EQ(image.index_of_point("c"), 2);
  EXPECT_EQ(image.index_of_point("b"), -1);
}

}  // namespace
}  // namespace vorn
