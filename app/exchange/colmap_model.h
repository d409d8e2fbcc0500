#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/exchange/reconstruction.h"
#include "app/exchange/source.h"

// A COLMAP model as its files hold it, in text or binary. Both readers fill this; what follows
// (looking up identifiers, holding the files against each other) is done once.

namespace vorn::exchange {

struct ColmapCameraModel {
  std::int32_t id;
  std::string_view name;
  std::int32_t num_params;
  // What the parameters are, in order: 'f' both focal lengths, 'a' fx, 'b' fy, 'x' cx, 'y' cy, '1',
  // '2', '3' k1 to k3, 'p', 'q' p1 and p2, '0' one that must be 0. Empty: no exact counterpart.
  std::string_view layout;
};
std::span<const ColmapCameraModel> colmap_camera_models();
// Null when there is none.
const ColmapCameraModel* find_colmap_camera_model(std::string_view name);
const ColmapCameraModel* find_colmap_camera_model(std::int32_t id);

struct ColmapCamera {
  std::uint32_t id = 0;
  const ColmapCameraModel* model = nullptr;
  std::uint64_t width = 0;
  std::uint64_t height = 0;
  std::array<double, 12> params{};
  std::size_t offset = 0;  // where it stands in its file
};

struct ColmapFeature {
  static constexpr std::uint64_t kNoPoint = std::numeric_limits<std::uint64_t>::max();
  Pixel xy{};
  std::uint64_t point_id = kNoPoint;
};

struct ColmapImage {
  std::uint32_t id = 0;
  std::array<double, 4> quaternion{};  // w, x, y, z
  Vec3 translation{};
  std::uint32_t camera_id = 0;
  std::string name;
  std::vector<ColmapFeature> features;
  std::size_t offset = 0;
};

struct ColmapPoint {
  std::uint64_t id = 0;
  Vec3 xyz{};
  std::size_t track_end = 0;  // in ColmapModel::tracks; it begins where the one before ends
  std::size_t offset = 0;
};

struct ColmapTrackElement {
  std::uint32_t image_id = 0;
  std::uint32_t feature = 0;
};

struct ColmapModel {
  std::vector<ColmapCamera> cameras;
  std::vector<ColmapImage> images;
  std::vector<ColmapPoint> points;
  std::vector<ColmapTrackElement> tracks;
};

struct ColmapSources {
  const Source& cameras;
  const Source& images;
  const Source& points;
};

// Throws where the files contradict each other or a camera has no exact counterpart.
Reconstruction reconstruction_of(ColmapModel model, const ColmapSources& sources);

}  // namespace vorn::exchange
