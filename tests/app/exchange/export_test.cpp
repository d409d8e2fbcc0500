// Export: other formats project where the project does.

#include "app/exchange/export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "app/exchange/import.h"
#include "app/exchange/project_model.h"
#include "app/exchange/readers.h"
#include "samples.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"

namespace vorn::exchange {
namespace {

using testing::HasSubstr;

// Largest difference of the projections of two models of the same rays [px].
double difference_of(const Reconstruction& a, const Reconstruction& b) {
  double largest = 0.0;
  EXPECT_EQ(a.images.size(), b.images.size());
  EXPECT_EQ(a.count_rays(), b.count_rays());
  for (std::size_t i = 0; i < a.images.size(); ++i) {
    for (std::size_t k = 0; k < a.images[i].rays.size(); ++k) {
      const auto projected = [&](const Reconstruction& model) {
        const SourceRay& ray = model.images[i].rays[k];
        const Pixel xy =
            project(model, model.images[i], model.points[static_cast<std::size_t>(ray.point)].xyz)
                .xy;
        return Pixel{xy[0] - ray.xy[0], xy[1] - ray.xy[1]};
      };
      const Pixel p = projected(a);
      Pixel q = projected(b);
      if (a.axes != b.axes) q[1] = -q[1];
      largest = std::max(largest, std::hypot(p[0] - q[0], p[1] - q[1]));
    }
  }
  return largest;
}

TEST(Export, ReturnsWhatWasImported) {
  const test::TempDir dir;
  dir.write("text/cameras.txt", test::kColmapCameras);
  dir.write("text/images.txt", test::kColmapImages);
  dir.write("text/points3D.txt", test::kColmapPoints);
  dir.write("bal.txt", test::kBal);
  const auto read_bal_file = [](const std::string& path) {
    return read_bal(Source(path, Source::Kind::text));
  };
  const auto read_bundler_file = [](const std::string& path) {
    return read_bundler(Source(path, Source::Kind::text));
  };
  for (const char* from : {"colmap", "bal"}) {
    const bool colmap = std::string(from) == "colmap";
    const std::string source = dir.path(colmap ? "text" : "bal.txt");
    Reconstruction original = colmap ? read_colmap(source) : read_bal_file(source);
    leave_out_unusable(original, 0.0);
    const std::string project = dir.path(std::string(from) + "-project");
    const std::string output = test::captured_output([&] {
      ImportRequest request;
      request.format = from;
      request.source = source;
      request.directory = project;
      request.pixel_size_um = 3.3;
      import_project(request);
      for (const char* to : {"colmap", "colmap-binary", "bal", "bundler"}) {
        ExportRequest asked;
        asked.format = to;
        asked.output = dir.path(std::string(from) + "-" + to);
        export_given_project(project + "/project.ctl", asked);
      }
    });
    const std::string stem = dir.path(std::string(from) + "-");
    EXPECT_LT(difference_of(original, read_colmap(stem + "colmap")), 1e-9);
    EXPECT_LT(difference_of(original, read_colmap(stem + "colmap-binary")), 1e-9);
    if (colmap) {
      EXPECT_THAT(output, HasSubstr("its lens has no exact counterpart")) << "tangential terms";
      EXPECT_THAT(dir.read("colmap-colmap/cameras.txt"), HasSubstr("1 SIMPLE_RADIAL 640 480 "));
      EXPECT_THAT(dir.read("colmap-colmap/cameras.txt"), HasSubstr("7 FULL_OPENCV 800 600 "));
    } else {
      EXPECT_LT(difference_of(original, read_bal_file(stem + "bal")), 1e-9);
      EXPECT_LT(difference_of(original, read_bundler_file(stem + "bundler")), 1e-9);
      EXPECT_THAT(output, testing::Not(HasSubstr("note")));
    }
  }
}

struct LensCase {
  const char* camera;
  const char* set;
  const char* coords;  // of point a in both images
  LensForm form;
  double tolerance;  // [px]
  bool is_exact;
};

// Cameras of all kinds with all kinds of parameters; half the pixel size counts as one pixel's
// half.
TEST(Export, TakesLensesOver) {
  const char* const set = "1e-5 1e31 -2e-5 1e31 3e-4 1e31 -50 1e31 2e4 1e31 -1e6 1e31";
  const std::string australis = std::string("australis s c ") + set + " 1e-2 1e31 -2e-2 1e31 ";
  const std::string affine = australis + "1e-3 1e31 0 1e31";
  const std::string plain = australis + "0 1e31 0 1e31";
  const std::string stretched =
      "australis s c 0 1e31 0 1e31 0 1e31 0 1e31 0 1e31 0 1e31 0 1e31 0 1e31 2e-3 1e31 0 1e31";
  const std::string prism =
      "in-plane-dist s c 1e-5 1e31 0 1e31 0 1e31 0.1 1e31 0 1e31 0 1e31 0 1e31 0 1e31 0 1e31 0 "
      "1e31 "
      "0 1e31 0 1e31";
  const std::vector<LensCase> cases = {
      {"camera-ccd c x 20 0.1 -0.2 4000 3000 5 5.5", plain.c_str(), "1 2200 1600", LensForm::full,
       1e-9, true},
      {"camera-ccd-tr c x 20 0.1 -0.2 4000 3000 5 5.5", plain.c_str(), "1 2200 1600",
       LensForm::full, 1e-9, true},
      {"camera-ccd-tr c x 20 0.1 -0.2 4000 3000 5 5", stretched.c_str(), "1 2200 1600",
       LensForm::full, 1e-9, true},
      {"camera-frame c pixel=5um 20 0.1 -0.2 20 15", plain.c_str(), "1e-3 1.5 -2", LensForm::full,
       1e-9, true},
      {"camera-ccd c x 20 0.1 -0.2 4000 3000 5 5", affine.c_str(), "1 2200 1600", LensForm::full,
       0.05, false},
      {"camera-ccd c x 20 0.1 -0.2 4000 3000 5 5", prism.c_str(), "1 2200 1600", LensForm::full,
       0.5, false},
      {"camera-ccd c x 20 0.1 -0.2 4000 3000 5 5", "radial-dist s c -50 1e31 2e4 1e31 0 1e31",
       "1 2200 1600", LensForm::radial, 1e-9, true},
      {"camera-ccd c x 20 0.1 -0.2 4000 3000 5 5", plain.c_str(), "1 2200 1600", LensForm::radial,
       5.0, false},
  };
  for (const LensCase& lens : cases) {
    const test::TempDir dir;
    std::istringstream coords(lens.coords);
    std::string factor, xy;
    std::getline(coords >> factor, xy);
    const auto block = [&](const char* image) {
      std::string text = std::string(image) + ' ' + factor;
      for (const char* point : {"a", "b", "c"}) text += std::string("\n") + point + xy + " .1 .1";
      return text + "\n-1\n";
    };
    dir.write("p.ctl", "camera c image i image-geometry e image-crds m obj-crds o ap-set s");
    dir.write("c", lens.camera);
    dir.write("i", "image-frame 1 1 c image-frame 2 2 c");
    dir.write("e",
              "indiv-type ext-ori-opk-rot 1 deg 0 0 0 50 1e31 1e31 1e31 3 -4 20 1e31 1e31 1e31\n"
              "ext-ori-quaternion 2 0 10 0 50 1e31 1e31 1e31 1.9 0.1 0.2 -0.3 1e31 1e31 1e31 1e31");
    dir.write("m", block("1") + block("2"));
    dir.write("o", "indiv-sdev a 9 7 1 1e31 1e31 1e31 b -3 5 2 1e31 1e31 1e31 c 5 -8 0 .1 .1 .1");
    dir.write("s", lens.set);
    GivenProject given(dir.path("p.ctl"));
    const BundleProject& project = given.project();
    const Reconstruction model = model_of_project(project, lens.form, 0.0);
    EXPECT_EQ(model.notes.empty(), lens.is_exact) << lens.camera;
    double largest = 0.0;
    ASSERT_EQ(model.count_rays(), 6);
    for (std::size_t i = 0; i < 2; ++i) {
      const BundleImage& image = *project.images[static_cast<std::int32_t>(i)];
      for (const SourceRay& ray : model.images[i].rays) {
        const SourcePoint& point = model.points[static_cast<std::size_t>(ray.point)];
        const Projection projected = exchange::project(model, model.images[i], point.xyz);
        EXPECT_GT(projected.depth, 0.0);
        // The lengths of residuals: axes and origins of the formats differ.
        const ImagePoint& measured = *image.points.find(point.id);
        const Pair at = image.camera->image_to_pixel(image.object_to_image(point.xyz));
        const bool in_pixels = image.camera->get_type_name() != "frame";
        const double own =
            std::hypot(at[0] - measured.x, at[1] - measured.y) / (in_pixels ? 1.0 : 5e-6);
        const double other = std::hypot(projected.xy[0] - ray.xy[0], projected.xy[1] - ray.xy[1]);
        largest = std::max(largest, std::abs(own - other));
      }
    }
    EXPECT_LE(largest, lens.tolerance) << lens.camera << '\n' << lens.set;
  }
}

TEST(Export, RefusesWhatHasNoCounterpart) {
  const test::TempDir dir;
  dir.write("p.ctl", "camera c image i image-geometry e image-crds m");
  dir.write("c", "camera-pushbroom c x 62 0 0 12000 6.5 6.5 29");
  dir.write("i", "image-frame 1 1 c image-frame 2 2 c");
  const auto refusal = [&](const std::string& format) -> std::string {
    ExportRequest request;
    request.format = format;
    request.output = dir.path("out");
    std::string message;
    test::captured_output([&] {
      try {
        check_export(request, dir.path("p.ctl"));
        export_given_project(dir.path("p.ctl"), request);
      } catch (const ExchangeError& error) {
        message = error.what();
      }
    });
    return message;
  };
  EXPECT_THAT(refusal("vsfm"), HasSubstr("unknown format 'vsfm'; there are colmap,"));
  EXPECT_THAT(refusal("colmap"), HasSubstr("the project cannot be read")) << "no orientations";
  dir.write("m", "1 1 a 1 1 1 1 b 2 2 1 1 c 3 3 1 1 -1 2 1 a 1 1 1 1 b 2 2 1 1 c 3 3 1 1 -1");
  dir.write("e", "common-type ext-ori-opk-rot deg 0 0 1 1 1 1 1 1 1 0 0 50 0 0 0 2 10 0 50 0 0 0");
  EXPECT_THAT(refusal("colmap"), HasSubstr("camera c: a line camera has no counterpart"));
  EXPECT_FALSE(dir.has("out"));
  dir.write("c", "camera-frame c x 62 0 0 100 100");
  EXPECT_EQ(refusal("bal"), "");
  std::string dlt = "indiv-type";
  for (const char* id : {"1", "2"}) {
    dlt += std::string(" dlt ") + id + " 0";
    for (int i = 0; i < 11; ++i) dlt += " 0.1 1e31";
  }
  dir.write("e", dlt);
  EXPECT_THAT(refusal("bundler"), HasSubstr("image 1: its geometry is no exterior orientation"));
}

}  // namespace
}  // namespace vorn::exchange
