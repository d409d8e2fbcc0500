#include "sensors/bundle_image.h"

#include <gtest/gtest.h>

#include "calibration/ap_set.h"
#include "lsq/normal_matrix.h"
#include "sensors/camera_ccd.h"
#include "sensors/object_point.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_output;
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

struct FileCase {
  const char* text;
  int result;
  int count;
  const char* output;
};

TEST(ImageFile, AcceptsAndRejects) {
  const FileCase cases[] = {
      {"", 1, 0, ""},
      {"stop-dep x", 1, 0, ""},
      {"image-frame I G F", 1, 1, ""},
      {"image-frame I G F image-frame I G C stop-dep", 1, 2, ""},
      {"image-scanner I G F", -1, 0, "ERROR: Unknown image type: image-scanner\n"},
      {"image-frame I G F -1", -1, 1, "ERROR: Unknown image type: -1\n"},
      {"image-frame", -1, 0, "ERROR: Reading image  failed.\n"},
      {"image-frame I G", -1, 0, "ERROR: Reading image I failed.\n"},
      {"image-frame I G X image-frame J G F", -1, 0,
       "ERROR: Attach camera X for image I not failed.\nERROR: Reading image I failed.\n"},
  };
  for (const FileCase& c : cases) {
    SCOPED_TRACE(c.text);
    Images fixture;
    OwnedList<BundleImage> images;
    TokenReader in(c.text);
    const std::string output =
        captured_output([&] { EXPECT_EQ(read_image_file(in, images, fixture.cameras), c.result); });
    EXPECT_EQ(output, c.output);
    EXPECT_EQ(images.count(), c.count);
  }
}

TEST(ImageFile, BindsTheFirstCameraOfTheName) {
  Images fixture;
  const BundleImage& image = *fixture.images.find("F1");
  EXPECT_EQ(image.camera, fixture.cameras[0]);
  EXPECT_TRUE(fixture.cameras[0]->used);
  EXPECT_FALSE(fixture.cameras[2]->used);
  EXPECT_EQ(image.geometry_id, "G");
  EXPECT_FALSE(image.used);
}

// `count` is the number of points of both images together.
TEST(ImageCoordsFile, AcceptsAndRejects) {
  const FileCase cases[] = {
      {"", 1, 0, ""},
      {"-1 F1", 1, 0, ""},
      {"stop-dep", 1, 0, ""},
      {"F1 0.001", 1, 0, ""},
      {"F1 0.001 -1 C1 1 stop-dep stop-dep F1", 1, 0, ""},
      {"F1 1 a 1 2 3 4 b (1,2) (3) -1 C1 1 a 1 2 3 4", 1, 3, ""},
      {"F1 1 a 1 2 3 4 -1 F1 1 b 1 2 3 4 -1", 1, 2, ""},
      {"F1 1 a 1 2 3 4 b 1 2 3 4 a 5 6 7 8", 1, 2,
       "ATTENTION: BundleImage F1 point a was replaced.\n"},
      {"X 1 -1", -1, 0, "ERROR: BundleImage X not found.\n"},
      {"F1 1 -1 -2", -1, 0, "ERROR: BundleImage -2 not found.\n"},
      {"F1", -1, 0, "ERROR: BundleImage F1 read image coords. failed.\n"},
      {"F1 a 1 2 3 4", -1, 0, "ERROR: BundleImage F1 read image coords. failed.\n"},
      {"F1 1 a 1 2 3", -1, 0, "ERROR: BundleImage F1 read image coords. failed.\n"},
      {"F1 1 a 1 2 3 4 b (1;2) 3 4", -1, 1, "ERROR: BundleImage F1 read image coords. failed.\n"},
      {"F1 1 a 1 2 3 4 b 1,2 3 4", -1, 1, "ERROR: BundleImage F1 read image coords. failed.\n"},
  };
  for (const FileCase& c : cases) {
    SCOPED_TRACE(c.text);
    Images fixture;
    TokenReader in(c.text);
    const std::string output =
        captured_output([&] { EXPECT_EQ(read_image_crds_file(in, fixture.images), c.result); });
    EXPECT_EQ(output, c.output);
    EXPECT_EQ(fixture.images[0]->count_points() + fixture.images[1]->count_points(), c.count);
  }
}

TEST(ImageCoordsText, WrittenAndPrinted) {
  Images fixture;
  TokenReader in(
      "F1 0.001 12 -1.5 2.25 3.e-3 0.004 long-name-1 1e5 20 (1) -1 C1 10 12 1 2.5 .03 .04");
  ASSERT_EQ(read_image_crds_file(in, fixture.images), 1);
  struct Case {
    const char* image;
    const char* printed;
    const char* written;
  };
  const Case cases[] = {
      {"F1",
       "Number of points   :  2\nCoord. system type :  image\n\n"
       "      ID     x/mm       y/mm     sx/mm    sy/mm\n\n"
       "      12    -1.5000     2.2500   0.0030   0.0040\n"
       "long-name-1 100000.0000    20.0000   1.0000   0.0000\n\n",
       "F1   1e-06\n"
       "      12    -0.0000     0.0000   0.0000   0.0000\n"
       "long-name-1     0.0001     0.0000   0.0000   0.0000\n\n"},
      {"C1",
       "Number of points   :  1\nCoord. system type :  pixel (top-left)\n\n"
       "      ID     x/pix      y/pix    sx/pix   sy/pix\n\n"
       "      12    10.0000    25.0000   0.3000   0.4000\n\n",
       "C1   1e-06\n      12     0.0000     0.0000   0.0000   0.0000\n\n"},
  };
  for (const Case& c : cases) {
    const BundleImage& image = *fixture.images.find(c.image);
    EXPECT_EQ(written_text([&](TextWriter& out) { image.camera->print_image_coords(out, image); }),
              c.printed);
    EXPECT_EQ(written_text([&](TextWriter& out) { image.camera->write_image_coords(out, image); }),
              c.written);
  }
}

TEST(ImagePoints, ReplacedInTheirSlotAndRemovedWithoutMovingOthers) {
  Images fixture;
  BundleImage& image = *fixture.images[0];
  TokenReader in("1 a 1 0 0 0 b 2 0 0 0 a 3 0 0 0 c 4 0 0 0");
  captured_output([&] { image.camera->read_image_coords(in, image); });
  EXPECT_EQ(image.points[0]->x, 3);
  EXPECT_TRUE(image.remove_point("b"));
  EXPECT_FALSE(image.remove_point("b"));
  EXPECT_EQ(image.count_points(), 2);
  EXPECT_EQ(image.index_of_point("c"), 2);
  EXPECT_EQ(image.index_of_point("b"), -1);
  EXPECT_FALSE(image.has_point("b"));
  auto again = std::make_unique<ImagePoint>();
  again->id = "b";
  EXPECT_TRUE(image.insert_point(std::move(again)));
  EXPECT_EQ(image.index_of_point("b"), 3);
}

// x = X / Z + p0, y = Y + p1
class FlatGeometry : public ImageGeometry {
 public:
  FlatGeometry() : ImageGeometry(2) { id = "G"; }
  bool projection(const Vec3& object_point, Vec3& image) const override {
    image[0] = object_point[0] / object_point[2] + value(0);
    image[1] = object_point[1] + value(1);
    return true;
  }
  bool intersection(const ImageGeometry&, const Vec3&, const Vec3&, Vec3&, double&) const override {
    return false;
  }
  bool get_derivs(const Vec3&, const Vec3& object_point, PointDerivs& derivs) override {
    if (object_point[2] == 0) return false;
    const double z = object_point[2];
    set_block(derivs.point.a, {1 / z, 0, -object_point[0] / (z * z), 0, 1, 0}, 3);
    set_block(derivs.geometry.a, {1, 0, 0, 1}, 2);
    set_block(derivs.b, {1, 0, 0, 1}, 2);
    return true;
  }

 private:
  static void set_block(Matrix& a, std::initializer_list<double> values, std::int32_t cols) {
    a.resize(2, cols);
    a.set_from(values.begin());
  }
};

class ShiftSet : public APSet {
 public:
  ShiftSet() : APSet(2) {
    index = 8;
    value(0) = 0.001;
    value(1) = 0.002;
  }
  void get_derivs(const Vec3& point, DesignBlock& block) const override {
    block.a.resize(2, 2);
    block.a.zero();
    block.a[0][0] = 1;
    block.a[1][1] = point[0];
  }
};

// One CCD image of two object points, numbered 0..2 and 3..5; geometry 6..7, set 8..9.
struct Observed : Images {
  Observed() {
    OwnedList<ImageGeometry> geometries;
    geometry = &geometries.append(std::make_unique<FlatGeometry>());
    image.geometry_id = "G";
    EXPECT_TRUE(image.attach_geometry(geometries));
    EXPECT_TRUE(geometry->used);
    owner = geometries.take_out(0);
    geometry->index = 6;
    geometry->value(0) = 0.25;
    geometry->value(1) = -0.5;
    image.camera->ap_sets = {&set};
    TokenReader in("common-sdev 1 1 1 a (1,2,4) b 3 4 5");
    read_obj_crds(in, points);
    points[0]->index = 0;
    points[1]->index = 3;
    for (AdjObject* object : {static_cast<AdjObject*>(geometry), static_cast<AdjObject*>(&set)}) {
      object->init_params();
    }
    rhs.zero();
  }
  int add(std::string_view coords) {
    TokenReader in(coords);
    EXPECT_TRUE(image.camera->read_image_coords(in, image));
    NormalStructure structure(2);
    structure.add_block(2);
    structure.add_block(2);
    image.add_structure(points, structure);
    EXPECT_TRUE(normal.set_structure(structure));
    image.locate(normal);
    return image.add_observations(normal, rhs, lPl, count);
  }
  BundleImage& image = *images[1];
  ImageGeometry* geometry = nullptr;
  std::unique_ptr<ImageGeometry> owner;
  ShiftSet set;
  OwnedList<ObjectPoint> points;
  NormalMatrix normal;
  Vector rhs{10};
  double lPl = 0;
  std::int32_t count = 0;
};

TEST(ImageObservations, NormalEquationsOfOnePoint) {
  Observed block;
  EXPECT_EQ(block.add("1 b 70 30 0.5 0.25"), 1);
  EXPECT_EQ(block.count, 2);

  const double x = 20e-5;  // measured: 10 um pixels round (50, 50)
  const double y = 20e-5;
  const Pair projected{3.0 / 5 + 0.25, 4 - 0.5};
  const Pair at_measured{0.001, 0.002 * x};  // effects of the set
  const Pair at_projected{0.001, 0.002 * projected[0]};
  // The set's derivatives stand at the measured point after its correction.
  const Vec3 vector{x - at_measured[0], y - at_measured[1], -0.05};
  const double a[2][10] = {{0, 0, 0, 0.2, 0, -0.12, 1, 0, 1, 0},
                           {0, 0, 0, 0, 1, 0, 0, 1, 0, vector[0]}};
  const double l[2] = {x - (projected[0] + at_projected[0]), y - (projected[1] + at_projected[1])};
  const double sigma0 = ls_params().sigma0_apriori;
  const double p[2] = {sigma0 * sigma0 / (5e-6 * 5e-6), sigma0 * sigma0 / (2.5e-6 * 2.5e-6)};
  for (std::int32_t i = 0; i < 10; ++i) {
    for (std::int32_t j = i; j < 10; ++j) {
      EXPECT_NEAR(block.normal.at(i, j), a[0][i] * p[0] * a[0][j] + a[1][i] * p[1] * a[1][j], 1e-12)
          << i << ' ' << j;
    }
    EXPECT_NEAR(block.rhs[i], a[0][i] * p[0] * l[0] + a[1][i] * p[1] * l[1], 1e-12) << i;
  }
  EXPECT_NEAR(block.lPl, p[0] * l[0] * l[0] + p[1] * l[1] * l[1], 1e-12);
}

TEST(ImageObservations, UnknownPointsArePassedOver) {
  Observed block;
  const std::string output = captured_output(
      [&] { EXPECT_EQ(block.add("1 a 1 2 1 1 gone 1 2 1 1 x 1 2 1 1 b 1 2 1 1"), 1); });
  EXPECT_EQ(output,
            "ATTENTION: Object point gone not found.\nATTENTION: Object point x not found.\n");
  EXPECT_EQ(block.count, 4);
  block.image.remove_point("gone");
  block.image.remove_point("a");
  EXPECT_EQ(captured_output([&] { EXPECT_EQ(block.add("1"), 1); }),
            "ATTENTION: Object point x not found.\n");
  EXPECT_EQ(block.count, 6);
}

TEST(ImageObservations, DegeneratePointsFail) {
  Observed no_weight;
  EXPECT_EQ(captured_output([&] { EXPECT_EQ(no_weight.add("1 a 1 2 1 1 b 1 2 0 1"), -1); }),
            "ERROR: Decomposition of weight matrix failed.\n");
  EXPECT_EQ(no_weight.count, 2);
  Observed no_projection;
  no_projection.points[0]->xyz[2] = 0;
  EXPECT_EQ(no_projection.add("1 a 1 2 1 1"), -1);
  EXPECT_EQ(no_projection.count, 0);
}

TEST(ImageObservations, MissingGeometryAndUnfinishedOperations) {
  Images fixture;
  BundleImage& image = *fixture.images[0];
  EXPECT_FALSE(image.attach_geometry(OwnedList<ImageGeometry>()));
  EXPECT_EQ(captured_output([&] { EXPECT_EQ(image.image_to_object(), -1); }),
            "ERROR: image_to_object() not implemented yet!\n");
}

}  // namespace
}  // namespace vorn
