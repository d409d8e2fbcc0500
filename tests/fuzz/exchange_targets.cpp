// A target per reader of another program's format.

#include <array>
#include <cmath>

#include "app/exchange/control_list.h"
#include "app/exchange/readers.h"
#include "fuzz/fuzz_target.h"

namespace vorn::fuzz {
namespace {

using exchange::ExchangeError;
using exchange::Reconstruction;
using exchange::Source;

// What every model that a reader accepts promises.
void check_model(Reconstruction& model) {
  const std::int64_t rays = model.count_rays();
  for (const exchange::SourceImage& image : model.images) {
    require(static_cast<std::size_t>(image.camera) < model.cameras.size(), "an image has a camera");
    require(!image.name.empty(), "an image has a name");
    for (const exchange::SourceRay& ray : image.rays) {
      require(static_cast<std::size_t>(ray.point) < model.points.size(), "a ray has a point");
      require(std::isfinite(ray.xy[0]) && std::isfinite(ray.xy[1]), "measurements are finite");
    }
  }
  for (const exchange::SourceCamera& camera : model.cameras) {
    require(camera.fx > 0.0 && camera.fy > 0.0, "focal lengths are positive");
  }
  leave_out_unusable(model, 0.0);
  const exchange::LeftOut& left_out = model.left_out;
  require(rays == model.count_rays() + left_out.duplicates + left_out.rays_at_centre +
                      left_out.rays_of_few,
          "no ray is left out silently");
}

// Reads a text that either is refused or gives a sound model.
template <class Read>
bool read_and_check(Read read) {
  try {
    Reconstruction model = read();
    check_model(model);
  } catch (const ExchangeError&) {
    // Refused with a message.
  }
  return true;
}

// Inputs of several files: parts between bytes of this value.
template <std::size_t N>
std::array<std::string_view, N> parts_of(std::string_view text) {
  constexpr std::string_view kMark = "\x01\x02\x01";
  std::array<std::string_view, N> parts;
  for (std::string_view& part : parts) {
    const std::size_t end = text.find(kMark);
    part = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + kMark.size());
  }
  return parts;
}

template <Reconstruction (*Read)(const Source&)>
bool fuzz_file(std::string_view text) {
  return read_and_check([&] { return Read(Source("x", text, Source::Kind::text)); });
}

template <Reconstruction (*Read)(const Source&, const Source&, const Source&), Source::Kind Kind>
bool fuzz_colmap(std::string_view text) {
  const auto parts = parts_of<3>(text);
  return read_and_check([&] {
    return Read(Source("cameras", parts[0], Kind), Source("images", parts[1], Kind),
                Source("points3D", parts[2], Kind));
  });
}

bool fuzz_opensfm(std::string_view text) {
  const auto parts = parts_of<2>(text);
  return read_and_check([&] {
    return exchange::read_opensfm(Source("r", parts[0], Source::Kind::text),
                                  Source("t", parts[1], Source::Kind::text));
  });
}

// Over a model of two images.
bool fuzz_control_list(std::string_view text) {
  return read_and_check([&] {
    Reconstruction model;
    exchange::SourceCamera camera;
    camera.columns = camera.rows = 1000;
    camera.fx = camera.fy = 900;
    camera.k = {-0.1, 0.02, 0.0};
    model.cameras = {camera};
    const Mat3 r = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    model.images = {{"a", 0, {r, {0, 0, 0}, true}, {}}, {"b", 0, {r, {1, 0, 0}, true}, {}}};
    for (const exchange::ControlPoint& point :
         add_control(model, Source("gcp", text, Source::Kind::text), 0.01)) {
      require(static_cast<std::size_t>(point.point) < model.points.size(), "control is a point");
    }
    return model;
  });
}

}  // namespace

const std::vector<FuzzTarget>& exchange_targets() {
  static const std::vector<FuzzTarget> targets = {
      {"colmap-text", fuzz_colmap<exchange::read_colmap_text, Source::Kind::text>},
      {"colmap-binary", fuzz_colmap<exchange::read_colmap_binary, Source::Kind::binary>},
      {"bal", fuzz_file<exchange::read_bal>},
      {"bundler", fuzz_file<exchange::read_bundler>},
      {"openmvg", fuzz_file<exchange::read_openmvg>},
      {"opensfm", fuzz_opensfm},
      {"metashape", fuzz_file<exchange::read_metashape>},
      {"control-list", fuzz_control_list},
  };
  return targets;
}

}  // namespace vorn::fuzz
