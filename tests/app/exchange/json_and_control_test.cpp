// Import of OpenMVG, OpenSfM and control lists.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "app/exchange/control_list.h"
#include "app/exchange/import.h"
#include "app/exchange/readers.h"
#include "app/exchange/similarity.h"
#include "samples.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"

namespace vorn::exchange {
namespace {

using testing::HasSubstr;

template <class Read>
std::string refusal_of(Read read) {
  try {
    read();
  } catch (const ExchangeError& error) {
    return error.what();
  }
  return "";
}

#ifdef VORN_WITH_JSON

const std::string kOpenMvg = R"({"sfm_data_version": "0.3", "views": [
{"key": 0, "value": {"polymorphic_id": 1073741824, "ptr_wrapper": {"id": 2147483649, "data":
 {"local_path": "", "filename": "a.jpg", "width": 800, "height": 600, "id_view": 0, "id_intrinsic": 0, "id_pose": 0}}}},
{"key": 1, "value": {"polymorphic_id": 1073741824, "ptr_wrapper": {"id": 2147483650, "data":
 {"local_path": "d", "filename": "b.jpg", "width": 800, "height": 600, "id_view": 1, "id_intrinsic": 1, "id_pose": 7}}}},
{"key": 2, "value": {"polymorphic_id": 1073741824, "ptr_wrapper": {"id": 2147483651, "data":
 {"local_path": "", "filename": "c.jpg", "width": 800, "height": 600, "id_view": 2, "id_intrinsic": 0, "id_pose": 4294967295}}}}],
"intrinsics": [
{"key": 0, "value": {"polymorphic_id": 2147483649, "polymorphic_name": "pinhole_brown_t2", "ptr_wrapper": {"id": 2147483652, "data":
 {"width": 800, "height": 600, "focal_length": 700.5, "principal_point": [401, 299.5], "disto_t2": [-0.1, 0.01, 0.002, 0.001, -0.002]}}}},
{"key": 1, "value": {"polymorphic_id": 1, "ptr_wrapper": {"id": 4}}}],
"extrinsics": [
{"key": 0, "value": {"rotation": [[1,0,0],[0,1,0],[0,0,1]], "center": [0,0,0]}},
{"key": 7, "value": {"rotation": [[0.8,0,0.6],[0,1,0],[-0.6,0,0.8]], "center": [-3,0.1,1]}}],
"structure": [
{"key": 5, "value": {"X": [0.1,0.2,5], "observations": [
 {"key": 0, "value": {"id_feat": 1, "x": [410, 330]}}, {"key": 1, "value": {"id_feat": 2, "x": [420, 310]}},
 {"key": 2, "value": {"id_feat": 2, "x": [420, 310]}}]}},
{"key": 9, "value": {"X": [-0.4,0.3,6], "observations": [
 {"key": 0, "value": {"id_feat": 3, "x": [350, 335]}}, {"key": 1, "value": {"id_feat": 4, "x": [390, 320]}}]}}],
"control_points": []})";

TEST(OpenMvg, IsReadWithWhatItRefersTo) {
  const Reconstruction model = read_openmvg(Source("x.json", kOpenMvg, Source::Kind::text));
  ASSERT_EQ(model.images.size(), 2U);
  EXPECT_EQ(model.images[1].name, "d/b.jpg");
  EXPECT_EQ(model.cameras[1].fx, 700.5) << "a second pointer to the same lens";
  EXPECT_EQ(model.cameras[0].p[1], -0.002);
  EXPECT_EQ(model.count_rays(), 4);
  EXPECT_THAT(model.notes, testing::ElementsAre(HasSubstr("1 views without pose")));
  // By hand: u = 0.02, v = 0.04, the lens's terms as its documents give them.
  const Pixel xy = project(model, model.images[0], model.points[0].xyz).xy;
  const double r2 = 0.002;
  const double radial = 1 - 0.1 * r2 + 0.01 * r2 * r2 + 0.002 * r2 * r2 * r2;
  const double x = 0.02 * radial - 0.002 * (r2 + 2 * 0.0004) + 2 * 0.001 * 0.02 * 0.04;
  const double y = 0.04 * radial + 0.001 * (r2 + 2 * 0.0016) - 2 * 0.002 * 0.02 * 0.04;
  EXPECT_NEAR(xy[0], 700.5 * x + 401, 1e-10);
  EXPECT_NEAR(xy[1], 700.5 * y + 299.5, 1e-10);
}

// Later versions put the members of base classes into objects of their own.
TEST(OpenMvg, IsReadWithBaseClasses) {
  const std::string nested = test::edited(
      test::edited(kOpenMvg, "\"width\": 800, \"height\": 600, \"focal_length\"",
                   "\"value0\": {\"value0\": {\"width\": 800, \"height\": 600}, \"focal_length\""),
      "\"principal_point\": [401, 299.5]", "\"principal_point\": [401, 299.5]}");
  const Reconstruction model = read_openmvg(Source("x", nested, Source::Kind::text));
  EXPECT_EQ(model.cameras[0].columns, 800);
  EXPECT_EQ(model.cameras[1].cx, 401.0);
}

TEST(OpenMvg, IsRefusedWhenDamaged) {
  const std::vector<std::array<std::string, 3>> damages = {
      {"pinhole_brown_t2", "fisheye", "x.json:10: intrinsics/0: the camera model 'fisheye'"},
      {"700.5", "-700.5", "the focal length is not positive"},
      {"\"key\": 9", "\"key\": 5", "structure/1: the point is there for the second time"},
      {"[-3,0.1,1]", "[-3,0.1]", "'center' is not 3 numbers"},
      {"[0.8,0,0.6]", "[0.9,0,0.6]", "the rotation matrix is none"},
      {"{\"key\": 2, \"value\": {\"id_feat\"", "{\"key\": 3, \"value\": {\"id_feat\"", "in view 3"},
      {"\"X\": [-0.4", "\"Y\": [-0.4", "structure/1: 'X' is missing"},
      {"{\"id\": 4}", "{\"id\": 44}", "refers to an object that is not there"},
      {"[410, 330]", "[410, 1e999]", "no valid JSON"},
      {"\"control_points\": []}", "\"control_points\": [", "no valid JSON"},
      {"c.jpg", "a.jpg", "the file name 'a.jpg' is taken"},
  };
  for (const auto& [from, to, message] : damages) {
    const std::string text = test::edited(kOpenMvg, from, to);
    EXPECT_THAT(refusal_of([&] { read_openmvg(Source("x.json", text, Source::Kind::text)); }),
                HasSubstr(message));
  }
  for (std::size_t size = 0; size < kOpenMvg.size(); size += 17) {
    const std::string text = kOpenMvg.substr(0, size);
    EXPECT_NE(refusal_of([&] { read_openmvg(Source("x", text, Source::Kind::text)); }), "") << size;
  }
}

const std::string kOpenSfm = R"([{"cameras": {"cam 1": {"projection_type": "brown", "width": 800,
 "height": 600, "focal_x": 0.9, "focal_y": 0.91, "c_x": 0.01, "c_y": -0.02, "k1": -0.1, "k2": 0.01,
 "k3": 0, "p1": 0.001, "p2": 0}}, "shots": {
"a b.jpg": {"rotation": [0, 0, 0], "translation": [0, 0, 0], "camera": "cam 1"},
"c.jpg": {"rotation": [0, 0.1, 0], "translation": [-1, 0, 0.1], "camera": "cam 1"}},
"points": {"17": {"coordinates": [0.1, 0.2, 5]}, "x 4": {"coordinates": [0.3, -0.2, 6]}}},
{"cameras": {}, "shots": {}, "points": {"1": {"coordinates": [1, 2, 3]}}}])";
const std::string kTracks =
    "OPENSFM_TRACKS_VERSION_v2\n"
    "a b.jpg\t17\t5\t0.01\t0.02\t0.001\t1\t2\t3\t-1\t-1\n"
    "c.jpg\t17\t6\t-0.2\t0.01\t0.001\t1\t2\t3\t-1\t-1\n"
    "a b.jpg\tx 4\t7\t0.05\t-0.03\t0.001\t1\t2\t3\t-1\t-1\r\n"
    "c.jpg\tx 4\t8\t-0.1\t-0.04\t0.001\t1\t2\t3\t-1\t-1\n"
    "c.jpg\t99\t8\t-0.1\t-0.04\t0.001\t1\t2\t3\t-1\t-1\n"
    "z.jpg\t17\t8\t-0.1\t-0.04\t0.001\t1\t2\t3\t-1\t-1\n";

TEST(OpenSfm, IsReadWithItsTracks) {
  const test::TempDir dir;
  dir.write("s/reconstruction.json", kOpenSfm);
  dir.write("s/tracks.csv", kTracks);
  const Reconstruction model = read_opensfm(dir.path("s"));
  EXPECT_EQ(model.count_rays(), 4);
  EXPECT_EQ(model.points[1].id, "x 4");
  EXPECT_THAT(model.notes,
              testing::UnorderedElementsAre(HasSubstr("reconstruction 1 of the file was left out"),
                                            HasSubstr("1 measurements in images"),
                                            HasSubstr("1 measurements of")));
  // Normalised coordinates count from the centre of the image, in the larger of its sides.
  EXPECT_NEAR(model.images[0].rays[0].xy[0], 0.01 * 800 + 399.5, 1e-12);
  EXPECT_NEAR(model.cameras[0].cy, -0.02 * 800 + 299.5, 1e-12);
  ImportRequest request;
  request.format = "opensfm";
  request.source = dir.path("s");
  request.directory = dir.path("out");
  test::captured_output([&] { import_project(request); });
  EXPECT_THAT(dir.read("out/images.txt"), HasSubstr("image-frame a_b.jpg a_b.jpg cam_1\n"));
  // Words that blanks make equal are told apart.
  dir.write("s/reconstruction.json", test::edited(kOpenSfm, "\"17\"", "\"x_4\""));
  dir.write("s/tracks.csv", test::edited(test::edited(test::edited(kTracks, "\t17\t", "\tx_4\t"),
                                                      "\t17\t", "\tx_4\t"),
                                         "z.jpg\t17", "z.jpg\t99"));
  test::captured_output([&] { import_project(request); });
  EXPECT_THAT(dir.read("out/object-coords.txt"), HasSubstr("x_4 0.1 0.2 5 "));
  EXPECT_THAT(dir.read("out/object-coords.txt"), HasSubstr("x_4_2 0.3 -0.2 6 "));
}

TEST(OpenSfm, IsRefusedWhenDamaged) {
  const auto refusal = [](const std::string& json, const std::string& tracks) {
    return refusal_of([&] {
      read_opensfm(Source("r", json, Source::Kind::text), Source("t", tracks, Source::Kind::text));
    });
  };
  EXPECT_EQ(refusal(kOpenSfm, kTracks), "");
  EXPECT_THAT(refusal(test::edited(kOpenSfm, "brown", "fisheye"), kTracks),
              HasSubstr("'fisheye' has no"));
  EXPECT_THAT(refusal(test::edited(kOpenSfm, "x 4", "17"), kTracks),
              HasSubstr("for the second time"));
  EXPECT_THAT(
      refusal(test::edited(kOpenSfm, "\"camera\": \"cam 1\"", "\"camera\": \"cam\""), kTracks),
      HasSubstr("there is no camera 'cam'"));
  EXPECT_THAT(refusal(test::edited(kOpenSfm, "[0, 0.1, 0]", "[0, null, 0]"), kTracks),
              HasSubstr("r:5: 0/shots/c.jpg: 'rotation' is not 3 numbers"));
  EXPECT_THAT(refusal("{}", kTracks), HasSubstr("holds no reconstruction"));
  EXPECT_THAT(refusal(kOpenSfm, test::edited(kTracks, "0.01\t0.02", "0.01\tnan")),
              HasSubstr("t:2: 'nan'"));
  EXPECT_THAT(refusal(kOpenSfm, "c.jpg\t17\n"), HasSubstr("t:1: is no line"));
  EXPECT_THAT(refusal(kOpenSfm, kTracks + "c.jpg\t17\t1\t0.1\t0.2\n"),
              HasSubstr("t:8: has not as many fields"));
  EXPECT_THAT(refusal(kOpenSfm, kTracks.substr(0, kTracks.find("a b.jpg\tx 4"))),
              HasSubstr("t:4: ends without a measurement of point x 4"));
  EXPECT_THAT(refusal(test::edited(kOpenSfm, "\"points\"", "\"dots\""), kTracks),
              HasSubstr("no track is a point"));
}

#endif

#ifdef VORN_WITH_XML

const std::string kMetashape = R"(<?xml version="1.0"?>
<document version="1.5.0"><chunk label="1"><sensors>
<sensor id="0" type="frame"><resolution width="800" height="600"/>
<calibration type="frame" class="adjusted"><resolution width="800" height="600"/>
<f>700</f><cx>1.5</cx><cy>-2</cy><k1>-0.1</k1><k2>0.01</k2><p1>0.001</p1><p2>-0.002</p2><b1>3</b1>
</calibration></sensor></sensors><cameras>
<camera id="0" sensor_id="0" label="a b"><transform>1 0 0 5 0 0 1 6 0 -1 0 7 0 0 0 1</transform></camera>
<group><camera id="1" sensor_id="0" label="c"/></group></cameras></chunk></document>)";

TEST(Metashape, IsReadWithoutPoints) {
  const Reconstruction model = read_metashape(Source("x.xml", kMetashape, Source::Kind::text));
  ASSERT_EQ(model.images.size(), 1U);
  EXPECT_EQ(model.cameras[0].fx, 703.0);
  EXPECT_THAT(model.notes, testing::Contains(HasSubstr("1 cameras are not aligned")));
  // A point 10 ahead, 1 to the right and 2 down in the camera's axes, which are X, -Z, Y.
  const Projection seen = project(model, model.images[0], {6, 16, 5});
  EXPECT_NEAR(seen.depth, 10.0, 1e-12);
  const double r2 = 0.05;
  const double radial = 1 - 0.1 * r2 + 0.01 * r2 * r2;
  const double x = 0.1 * radial + 0.001 * (r2 + 2 * 0.01) + 2 * -0.002 * 0.1 * 0.2;
  EXPECT_NEAR(seen.xy[0], 400 + 1.5 + x * 703, 1e-10);

  for (const auto& [from, to, message] : std::vector<std::array<std::string, 3>>{
           {"<f>700", "<f>x", "x.xml:5: f is not 1 numbers"},
           {"<b1>3", "<k4>3</k4><b1>3", "k4 has no exact counterpart"},
           {"n type=\"frame\"", "n type=\"fisheye\"", "'fisheye' has no exact counterpart"},
           {"sensor_id=\"0\"", "sensor_id=\"9\"", "has no sensor"},
           {">1 0 0 5", ">2 0 0 5", "no rotation and shift"},
           {"7 0 0 0 1", "7 0 0 1 1", "no rotation and shift"},
           {"r id=\"0\" type=\"frame\"", "r id=\"0\" type=\"rpc\"", "'rpc' has no exact"},
           {"ed\"><resolution width=\"8", "ed\"><resolution width=\"9000008", "has no resolution"},
           {"</document>", "", "no valid XML"}}) {
    const std::string text = test::edited(kMetashape, from, to);
    EXPECT_THAT(refusal_of([&] { read_metashape(Source("x.xml", text, Source::Kind::text)); }),
                HasSubstr(message));
  }
}

#endif

TEST(Similarity, IsFoundFromPoints) {
  const Similarity truth{2.5, rotation_of_vector({0.3, -2.0, 1.1}), {500000, -4000, 30}};
  std::vector<Vec3> from = {{0, 0, 0}, {1, 0.1, 0}, {0.2, 2, -1}, {-1, 0.5, 3}};
  std::vector<Vec3> to;
  for (const Vec3& x : from) to.push_back(truth(x));
  Similarity found;
  ASSERT_TRUE(find_similarity(from, to, found));
  for (const Vec3& x : from) EXPECT_LT(length(found(x) - truth(x)), 1e-8);
  EXPECT_FALSE(find_similarity({from[0], from[1]}, {to[0], to[1]}, found));
  from = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {5, 5, 5}};
  EXPECT_FALSE(find_similarity(from, from, found)) << "on a line";
}

// Two images looking at four corners; the list is in a system twice as large, turned and far away.
class ControlLists : public testing::Test {
 protected:
  ControlLists() {
    model_.first_pixel = 0.5;
    SourceCamera camera;
    camera.id = "c";
    camera.columns = camera.rows = 1000;
    camera.fx = camera.fy = 900;
    camera.cx = camera.cy = 500;
    camera.k = {-0.1, 0.02, 0};
    model_.cameras = {camera};
    model_.images = {{"a_b.jpg", 0, {rotation_of_vector({0, 0.1, 0}), {0.1, 0, 0}, false}, {}},
                     {"d/c.jpg", 0, {rotation_of_vector({0, -0.2, 0.1}), {-1, 0, 0.2}, false}, {}}};
    for (int i = 0; i < 4; ++i) {
      const Vec3 x = corner(i);
      const Vec3 y = truth_(x);
      for (const SourceImage& image : model_.images) {
        const Pixel xy = project(model_, image, x).xy;
        const char* name = image.name == "a_b.jpg" ? "a b.jpg" : "c.jpg";
        char line[200];
        std::snprintf(line, sizeof line, "%.9f\t%.9f %.9f  %.9f %.9f\t%s\t%s\n", y[0], y[1], y[2],
                      xy[0], xy[1], name, ("g" + std::to_string(i)).c_str());
        lines_ += line;
      }
    }
  }
  static Vec3 corner(int i) { return {i % 2 - 0.5, i / 2 - 0.5, 5.0 + 0.1 * i * i}; }
  std::vector<ControlPoint> add(const std::string& text) {
    return add_control(model_, Source("gcp", text, Source::Kind::text), 0.02);
  }

  Similarity truth_{2.0, rotation_of_vector({0.3, 1.0, -0.4}), {500000, 5400000, 100}};
  Reconstruction model_;
  std::string lines_;
};

TEST_F(ControlLists, BringTheReconstructionIntoTheirSystem) {
  model_.points = {{"g0", {0, 0, 5}}};
  const std::vector<ControlPoint> control =
      add("\nEPSG:25832\r\n\n# comment\n" + lines_ + "1 2 3 4 5 elsewhere.jpg\n");
  ASSERT_EQ(control.size(), 4U);
  EXPECT_LT(length(model_.points[0].xyz - truth_(Vec3{0, 0, 5})), 1e-6);
  EXPECT_EQ(model_.points[1].id, "gcp_g0") << "the name of a tie point";
  EXPECT_EQ(model_.points[2].id, "g1");
  EXPECT_EQ(control[0].std_devs, (Vec3{0.02, 0.02, 0.02}));
  EXPECT_EQ(model_.count_rays(), 8);
  for (const SourceImage& image : model_.images) {
    for (const SourceRay& ray : image.rays) {
      const Pixel xy =
          project(model_, image, model_.points[static_cast<std::size_t>(ray.point)].xyz).xy;
      EXPECT_LT(std::hypot(xy[0] - ray.xy[0], xy[1] - ray.xy[1]), 1e-5);
    }
  }
  EXPECT_THAT(model_.notes, testing::Contains(HasSubstr("1 measurements in images that are not")));
}

TEST_F(ControlLists, LeaveUnknownHeightsFree) {
  std::string text = "WGS84 UTM 32N\n" + lines_;
  for (int i = 0; i < 2; ++i) {
    const std::size_t begin = text.find(' ', text.find('\t', text.find('\n') + 1)) + 1;
    text.replace(begin, text.find(' ', begin) - begin, "NaN");
    if (i == 0) text = text.substr(0, 14) + text.substr(text.find('\n', 14) + 1) + "";
  }
  const std::vector<ControlPoint> control = add(text);
  ASSERT_EQ(control.size(), 3U) << "one ray and no height make no point";
  EXPECT_EQ(control[0].std_devs[2], 0.02);
}

TEST_F(ControlLists, AreRefusedWhenTheyDoNotDetermineTheSystem) {
  const std::string head = "EPSG:25832\n";
  const std::string first = lines_.substr(0, lines_.find('\n') + 1);
  const std::vector<std::pair<std::string, const char*>> lists = {
      {"", "gcp:1: holds no control points"},
      {head, "holds no control points"},
      {lines_, "gcp:1: the first line must name the coordinate system"},
      {"+proj=longlat +datum=WGS84\n" + lines_, "gcp:1: coordinates in"},
      {head + "1 2 3 4\n", "gcp:2: ends where image coordinate"},
      {head + "1 2 x 4 5 a\n", "gcp:2: 'x' is no valid height"},
      {head + "1 2 3 4 5\n", "gcp:2: no image is named"},
      {head + lines_ + test::edited(first, "50000", "60000"),
       "gcp:10: point g0 has other coordinates"},
      {head + first, "there are 0"},
  };
  for (const auto& [text, message] : lists) {
    EXPECT_THAT(refusal_of([&] { static_cast<void>(add(text)); }), HasSubstr(message)) << text;
  }
  model_.axes = Axes::behind;
  EXPECT_THAT(refusal_of([&] { static_cast<void>(add(head + lines_)); }),
              HasSubstr("names of images"));
}

}  // namespace
}  // namespace vorn::exchange
