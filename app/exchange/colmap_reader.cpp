// COLMAP's text and binary files, and the folder that holds them.

#include <algorithm>
#include <filesystem>

#include "app/exchange/colmap_model.h"
#include "app/exchange/readers.h"

namespace vorn::exchange {
namespace {

namespace fs = std::filesystem;

// The next line that is neither empty nor a comment.
bool next_record(Lines& lines, std::string_view& line) {
  while (lines.next(line)) {
    const std::string_view text = trimmed(line);
    if (!text.empty() && text.front() != '#') return true;
  }
  return false;
}

// CAMERA_ID MODEL WIDTH HEIGHT PARAMS[]
std::vector<ColmapCamera> read_cameras(const Source& source) {
  std::vector<ColmapCamera> cameras;
  Lines lines(source);
  for (std::string_view line; next_record(lines, line);) {
    Fields fields(source, line);
    ColmapCamera camera;
    camera.offset = source.offset_of(line.data());
    camera.id = fields.integer<std::uint32_t>("camera identifier");
    const std::string_view model = fields.word("the camera model");
    camera.model = find_colmap_camera_model(model);
    if (camera.model == nullptr) {
      source.fail(model.data(), "unknown camera model '" + std::string(model) + "'");
    }
    camera.width = fields.integer<std::uint64_t>("image width");
    camera.height = fields.integer<std::uint64_t>("image height");
    for (std::int32_t i = 0; i < camera.model->num_params; ++i) {
      const double value = fields.real("camera parameter");
      const auto k = static_cast<std::size_t>(i);
      if (k < camera.params.size()) camera.params[k] = value;
    }
    fields.expect_end();
    cameras.push_back(camera);
  }
  return cameras;
}

// -1, as a signed number or as the largest unsigned one, means that the feature has no point.
std::uint64_t read_point_id(Fields& fields) {
  if (const Fields start = fields; fields.word("the point identifier") != "-1") {
    fields = start;
    return fields.integer<std::uint64_t>("point identifier");
  }
  return ColmapFeature::kNoPoint;
}

// Two lines each: IMAGE_ID QW QX QY QZ TX TY TZ CAMERA_ID NAME, then POINTS2D[] as X Y POINT3D_ID,
// which may be an empty line. The name is the rest of its line.
std::vector<ColmapImage> read_images(const Source& source) {
  std::vector<ColmapImage> images;
  Lines lines(source);
  for (std::string_view line; next_record(lines, line);) {
    Fields fields(source, line);
    ColmapImage image;
    image.offset = source.offset_of(line.data());
    image.id = fields.integer<std::uint32_t>("image identifier");
    for (double& q : image.quaternion) q = fields.real("quaternion");
    for (double& t : image.translation) t = fields.real("translation");
    image.camera_id = fields.integer<std::uint32_t>("camera identifier");
    image.name = fields.rest();
    if (lines.next(line)) {
      Fields features(source, line);
      while (!features.at_end()) {
        ColmapFeature feature;
        feature.xy[0] = features.real("image coordinate");
        feature.xy[1] = features.real("image coordinate");
        feature.point_id = read_point_id(features);
        image.features.push_back(feature);
      }
    }
    images.push_back(std::move(image));
  }
  return images;
}

// POINT3D_ID X Y Z R G B ERROR TRACK[] as IMAGE_ID POINT2D_IDX
void read_points(const Source& source, ColmapModel& model) {
  Lines lines(source);
  for (std::string_view line; next_record(lines, line);) {
    Fields fields(source, line);
    ColmapPoint point;
    point.offset = source.offset_of(line.data());
    point.id = fields.integer<std::uint64_t>("point identifier");
    for (double& x : point.xyz) x = fields.real("coordinate");
    for (int i = 0; i < 3; ++i) fields.integer<std::int32_t>("colour");
    fields.word("the error of the point");
    while (!fields.at_end()) {
      const auto image = fields.integer<std::uint32_t>("image identifier");
      model.tracks.push_back({image, fields.integer<std::uint32_t>("number of a measurement")});
    }
    point.track_end = model.tracks.size();
    model.points.push_back(point);
  }
}

std::vector<ColmapCamera> read_binary_cameras(const Source& source) {
  constexpr std::size_t kShortest = 4 + 4 + 8 + 8 + 3 * 8;
  Bytes bytes(source);
  std::vector<ColmapCamera> cameras(bytes.count(kShortest, "number of cameras"));
  for (ColmapCamera& camera : cameras) {
    camera.offset = bytes.offset();
    camera.id = bytes.uint32("a camera");
    const auto model = static_cast<std::int32_t>(bytes.uint32("a camera"));
    camera.model = find_colmap_camera_model(model);
    if (camera.model == nullptr) {
      source.fail(camera.offset + 4, "unknown camera model " + std::to_string(model));
    }
    camera.width = bytes.uint64("a camera");
    camera.height = bytes.uint64("a camera");
    for (std::int32_t i = 0; i < camera.model->num_params; ++i) {
      const double value = bytes.real("a camera parameter");
      const auto k = static_cast<std::size_t>(i);
      if (k < camera.params.size()) camera.params[k] = value;
    }
  }
  bytes.expect_end();
  return cameras;
}

std::vector<ColmapImage> read_binary_images(const Source& source) {
  constexpr std::size_t kShortest = 4 + 7 * 8 + 4 + 1 + 8;
  constexpr std::size_t kFeature = 2 * 8 + 8;
  Bytes bytes(source);
  std::vector<ColmapImage> images(bytes.count(kShortest, "number of images"));
  for (ColmapImage& image : images) {
    image.offset = bytes.offset();
    image.id = bytes.uint32("an image");
    for (double& q : image.quaternion) q = bytes.real("a quaternion");
    for (double& t : image.translation) t = bytes.real("a translation");
    image.camera_id = bytes.uint32("an image");
    image.name = bytes.text("the name of an image");
    image.features.resize(bytes.count(kFeature, "number of measurements"));
    for (ColmapFeature& feature : image.features) {
      feature.xy[0] = bytes.real("an image coordinate");
      feature.xy[1] = bytes.real("an image coordinate");
      feature.point_id = bytes.uint64("a measurement");
    }
  }
  bytes.expect_end();
  return images;
}

void read_binary_points(const Source& source, ColmapModel& model) {
  constexpr std::size_t kShortest = 8 + 3 * 8 + 3 + 8 + 8;
  constexpr std::size_t kElement = 4 + 4;
  Bytes bytes(source);
  model.points.resize(bytes.count(kShortest, "number of points"));
  for (ColmapPoint& point : model.points) {
    point.offset = bytes.offset();
    point.id = bytes.uint64("a point");
    for (double& x : point.xyz) x = bytes.real("a coordinate");
    bytes.skip(3 + 8, "a point");  // colour and error
    const std::size_t length = bytes.count(kElement, "length of a track");
    for (std::size_t i = 0; i < length; ++i) {
      const std::uint32_t image = bytes.uint32("a track");
      model.tracks.push_back({image, bytes.uint32("a track")});
    }
    point.track_end = model.tracks.size();
  }
  bytes.expect_end();
}

constexpr std::array<const char*, 3> kParts = {"cameras", "images", "points3D"};

bool has_model(const fs::path& directory, const char* extension) {
  return std::all_of(kParts.begin(), kParts.end(), [&](const char* part) {
    return fs::is_regular_file(directory / (std::string(part) + extension));
  });
}

// Why a folder holds no model, with the folders below it that do.
[[noreturn]] void refuse(const fs::path& directory) {
  std::string models;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    if (entry.is_directory() &&
        (has_model(entry.path(), ".bin") || has_model(entry.path(), ".txt"))) {
      models += (models.empty() ? " " : ", ") + entry.path().string();
    }
  }
  if (!models.empty()) {
    throw ExchangeError(directory.string() + ": holds several models; name one of them:" + models);
  }
  for (const char* extension : {".bin", ".txt"}) {
    for (const char* part : kParts) {
      if (!fs::exists(directory / (std::string(part) + extension))) continue;
      for (const char* other : kParts) {
        const fs::path missing = directory / (std::string(other) + extension);
        if (!fs::exists(missing)) throw ExchangeError(missing.string() + ": no such file");
      }
    }
  }
  throw ExchangeError(directory.string() +
                      ": no cameras, images and points3D, neither .bin nor .txt");
}

}  // namespace

Reconstruction read_colmap_text(const Source& cameras, const Source& images, const Source& points) {
  ColmapModel model;
  model.cameras = read_cameras(cameras);
  model.images = read_images(images);
  read_points(points, model);
  return reconstruction_of(std::move(model), {cameras, images, points});
}

Reconstruction read_colmap_binary(const Source& cameras, const Source& images,
                                  const Source& points) {
  ColmapModel model;
  model.cameras = read_binary_cameras(cameras);
  model.images = read_binary_images(images);
  read_binary_points(points, model);
  return reconstruction_of(std::move(model), {cameras, images, points});
}

Reconstruction read_colmap(const std::string& directory) {
  if (!fs::exists(directory)) throw ExchangeError(directory + ": no such folder");
  if (!fs::is_directory(directory)) throw ExchangeError(directory + ": is no folder");
  const bool binary = has_model(directory, ".bin");
  if (!binary && !has_model(directory, ".txt")) refuse(directory);
  const auto source = [&](const char* part) {
    const fs::path path = fs::path(directory) / (std::string(part) + (binary ? ".bin" : ".txt"));
    return Source(path.string(), binary ? Source::Kind::binary : Source::Kind::text);
  };
  const Source cameras = source("cameras");
  const Source images = source("images");
  const Source points = source("points3D");
  Reconstruction result = binary ? read_colmap_binary(cameras, images, points)
                                 : read_colmap_text(cameras, images, points);
  for (const char* part : {"rigs", "frames"}) {
    if (fs::exists(fs::path(directory) / (std::string(part) + (binary ? ".bin" : ".txt")))) {
      result.notes.push_back(std::string(part) +
                             " are not used: every image has an orientation of its own");
    }
  }
  return result;
}

}  // namespace vorn::exchange
