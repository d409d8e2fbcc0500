// Projects as layers and tables.

#include "app/exchange/layers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "app/exchange/export.h"
#include "app/exchange/project_model.h"
#include "app/exchange/source.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"

namespace vorn::exchange {
namespace {

using testing::HasSubstr;

class Layers : public testing::Test {
 protected:
  Layers() {
    dir_.write("p.ctl", "camera c image i image-geometry e image-crds m obj-crds o ctrl-supp s");
    dir_.write("c", "camera-frame c x 100 0 0 200 200");
    dir_.write("i", "image-frame A\"1 1 c image-frame 2 2 c");
    dir_.write("e",
               "common-type ext-ori-opk-rot deg 0 0 0 0 0 0 0 0 1 0 0 100 0 0 0 2 50 0 100 0 0 0");
    dir_.write("m",
               "A\"1 .001 a 0 0 1 1 b 10 0 1 1 c,1 0 10 1 1 -1\n"
               "2 .001 a -50 0 1 1 b -40 0 1 1 c,1 -50 10 1 1 -1");
    dir_.write("o", "indiv-sdev a 0 0 0 .1 .1 1e31 b 10 0 0 1e31 1e31 1e31 c,1 0 10 0 1 1 1");
    dir_.write("s", "c,1 ch xy -1");
  }
  // The state that the files give, with one point moved as an adjustment would.
  std::vector<Layer> layers() {
    given_ = std::make_unique<GivenProject>(dir_.path("p.ctl"));
    BundleProject& project = given_->project();
    project.object_points.find("a")->xyz = {0.25, -0.5, 3.0};
    project.object_points.find("c,1")->xyz = {0.0, 9.0, 0.0};
    const PointCovariances covariances = {{project.object_points.find("b"), {4.0, 0.0, 1.0, 9.0}}};
    return layers_of(project, covariances, 2.0);
  }

  test::TempDir dir_;
  std::unique_ptr<GivenProject> given_;
};

TEST_F(Layers, WriteCommaSeparatedValues) {
  write_csv(layers(), dir_.path("out"));
  EXPECT_THAT(
      dir_.read("out/points.csv"),
      HasSubstr("id,role,x,y,z,rays\na,co,0.25,-0.5,3,2\nb,in,10,0,0,2\n\"c,1\",ch,0,9,0,2\n"));
  EXPECT_THAT(dir_.read("out/images.csv"), HasSubstr("\"A\"\"1\",c,0,0,100,0,0,0,3,"));
  EXPECT_THAT(dir_.read("out/control_residuals.csv"), HasSubstr("\na,0.25,-0.5,,0.5590"))
      << "adjusted minus given, nothing where nothing is observed";
  EXPECT_THAT(dir_.read("out/check_differences.csv"), HasSubstr("\n\"c,1\",0,1,,1\n"))
      << "given minus adjusted";
  EXPECT_THAT(dir_.read("out/error_ellipses.csv"), HasSubstr("\nb,2,1,90,3\n"));
  EXPECT_THAT(dir_.read("out/image_residuals.csv"), HasSubstr("\n2,b,-0.04,0,0,0\n"));
  write_csv(layers(), dir_.path("x.csv"));
  EXPECT_EQ(dir_.read("x.csv"), dir_.read("out/points.csv"));
  EXPECT_EQ(dir_.read("x-images.csv"), dir_.read("out/images.csv"));
}

TEST_F(Layers, WriteGeoJson) {
  write_geojson(layers(), dir_.path("out"), "EPSG:25832");
  EXPECT_FALSE(dir_.has("out/image_residuals.geojson"));
  EXPECT_THAT(dir_.read("out/images.geojson"), HasSubstr(R"("id":"A\"1")"));
  const std::string text = dir_.read("out/control_residuals.geojson");
  EXPECT_THAT(text, HasSubstr("urn:ogc:def:crs:EPSG::25832"));
  EXPECT_THAT(text, HasSubstr("\"vz\":null"));
  EXPECT_THAT(text, HasSubstr(R"("LineString","coordinates":[[0,0,0],[0.5,-1,0]])"))
      << "twice the residual";
  EXPECT_THAT(dir_.read("out/error_ellipses.geojson"), HasSubstr("[[[14,0,0],"));
  write_geojson(layers(), dir_.path("all.geojson"), "");
  EXPECT_THAT(dir_.read("all.geojson"), HasSubstr(R"({"layer":"check_differences","id":"c,1")"));

  // Bytes that are no UTF-8: too long a form, a lonely byte, half of a pair.
  const Layer names{"names",
                    Shape::point,
                    {{"id", FieldKind::text}},
                    {{{{0, 0, 0}}, {std::string("\xE0\x80\x80 \xE9t \xED\xA0\x80 \xC3\xA9")}}}};
  write_geojson({names}, dir_.path("x.json"), "");
  EXPECT_THAT(
      dir_.read("x.json"),
      HasSubstr("\"\xC3\xA0\xC2\x80\xC2\x80 \xC3\xA9t \xC3\xAD\xC2\xA0\xC2\x80 \xC3\xA9\""));
}

TEST_F(Layers, WritePoints) {
  layers();
  write_ply(given_->project(), dir_.path("x.ply"));
  EXPECT_THAT(dir_.read("x.ply"), HasSubstr("element vertex 3\n"));
  EXPECT_THAT(dir_.read("x.ply"), HasSubstr("end_header\n0.25 -0.5 3 255 0 0\n10 0 0 128"));
}

TEST_F(Layers, WriteGeoPackage) {
#ifndef VORN_WITH_GDAL
  GTEST_SKIP() << "built without GDAL";
#endif
  const std::string path = dir_.path("x.gpkg");
  dir_.write("x.gpkg", "earlier");
  EXPECT_THROW(write_geopackage(layers(), path, "EPSG:99999999"), ExchangeError);
  EXPECT_EQ(dir_.read("x.gpkg"), "earlier");
  for (int i = 0; i < 2; ++i) write_geopackage(layers(), path, "EPSG:25832");
  EXPECT_TRUE(dir_.read("x.gpkg").starts_with("SQLite format 3"));
  for (const char* layer : {"points", "images", "control_residuals", "error_ellipses"}) {
    EXPECT_THAT(dir_.read("x.gpkg"), HasSubstr(layer));
  }
  EXPECT_THROW(write_geopackage(layers(), dir_.path("no/x.gpkg"), ""), ExchangeError);
}

// By any of the files that a format writes.
TEST_F(Layers, ReplaceNoFileOfTheProject) {
  const std::tuple<const char*, const char*, const char*> kExports[] = {
      {"colmap", ".", "images.txt"},
      {"colmap-binary", ".", "cameras.bin"},
      {"bal", "c", "c"},
      {"bundler", "./p.ctl", "p.ctl"},
      {"ply", "p.res", "p.res"},
      {"csv", ".", "error_ellipses.csv"},
      {"csv", "x.csv", "x-images.csv"},
      {"geojson", ".", "check_differences.geojson"},
      {"geojson", "x.json", "x.json"},
      {"gpkg", "x.gpkg", "x.gpkg"},
  };
  for (const auto& [format, output, file] : kExports) {
#ifndef VORN_WITH_GDAL
    if (format == std::string("gpkg")) continue;
#endif
    dir_.write("p.ctl", std::string("camera c image ") + file);
    dir_.write(file, dir_.read(file) + " ");
    ExportRequest request;
    request.format = format;
    request.output = dir_.path("new/" + std::string(output));
    EXPECT_NO_THROW(check_export(request, dir_.path("p.ctl"))) << format;
    request.output = dir_.path(output);
    EXPECT_THROW(check_export(request, dir_.path("p.ctl")), ExchangeError) << format;
  }
}

TEST_F(Layers, RefuseWhatTheyCannotWrite) {
  ExportRequest request;
  request.format = "geojson";
  request.crs = "WGS84";
  EXPECT_THROW(check_export(request, dir_.path("p.ctl")), ExchangeError);
  request.crs = "EPSG:4978";
  request.exaggeration = 0.0;
  EXPECT_THROW(check_export(request, dir_.path("p.ctl")), ExchangeError);
  EXPECT_THROW(write_csv(layers(), dir_.path("p.ctl/out")), ExchangeError);
  EXPECT_THROW(write_ply(given_->project(), dir_.path("no/x.ply")), ExchangeError);
}

}  // namespace
}  // namespace vorn::exchange
