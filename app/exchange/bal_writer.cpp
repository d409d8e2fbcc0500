// "Bundle Adjustment in the Large" and Bundler's "bundle.out".

#include "app/exchange/output_file.h"
#include "app/exchange/writers.h"

namespace vorn::exchange {
namespace {

const SourceCamera& camera_of(const Reconstruction& model, const SourceImage& image) {
  return model.cameras[static_cast<std::size_t>(image.camera)];
}

}  // namespace

void write_bal(const Reconstruction& model, const std::string& path) {
  OutputFiles outputs(OutputMode::replaced);
  OutputFile out(outputs, path);
  out << model.images.size() << ' ' << model.points.size() << ' ' << model.count_rays() << '\n';
  for (std::size_t i = 0; i < model.images.size(); ++i) {
    for (const SourceRay& ray : model.images[i].rays) {
      out << i << ' ' << ray.point << ' ' << ray.xy[0] << ' ' << ray.xy[1] << '\n';
    }
  }
  for (const SourceImage& image : model.images) {
    const SourceCamera& camera = camera_of(model, image);
    for (const double value : vector_of(image.pose.r)) out << value << '\n';
    for (const double value : image.pose.offset) out << value << '\n';
    out << camera.fx << '\n' << camera.k[0] << '\n' << camera.k[1] << '\n';
  }
  for (const SourcePoint& point : model.points) {
    for (const double value : point.xyz) out << value << '\n';
  }
  finish(outputs);
}

void write_bundler(const Reconstruction& model, const std::string& path) {
  struct View {
    std::size_t image;
    std::size_t key;
    Pixel xy;
  };
  std::vector<std::vector<View>> views(model.points.size());
  for (std::size_t i = 0; i < model.images.size(); ++i) {
    const auto& rays = model.images[i].rays;
    for (std::size_t k = 0; k < rays.size(); ++k) {
      views[static_cast<std::size_t>(rays[k].point)].push_back({i, k, rays[k].xy});
    }
  }
  OutputFiles outputs(OutputMode::replaced);
  OutputFile out(outputs, path);
  out << "# Bundle file v0.3\n" << model.images.size() << ' ' << model.points.size() << '\n';
  for (const SourceImage& image : model.images) {
    const SourceCamera& camera = camera_of(model, image);
    out << camera.fx << ' ' << camera.k[0] << ' ' << camera.k[1] << '\n';
    for (const Vec3& row : image.pose.r) {
      out << row[0] << ' ' << row[1] << ' ' << row[2] << '\n';
    }
    const Vec3& t = image.pose.offset;
    out << t[0] << ' ' << t[1] << ' ' << t[2] << '\n';
  }
  for (std::size_t i = 0; i < model.points.size(); ++i) {
    const Vec3& x = model.points[i].xyz;
    out << x[0] << ' ' << x[1] << ' ' << x[2] << "\n128 128 128\n" << views[i].size();
    for (const View& view : views[i]) {
      out << ' ' << view.image << ' ' << view.key << ' ' << view.xy[0] << ' ' << view.xy[1];
    }
    out << '\n';
  }
  finish(outputs);
}

}  // namespace vorn::exchange
