// COLMAP's text and binary files.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <unordered_set>

#include "app/exchange/colmap_model.h"
#include "app/exchange/output_file.h"
#include "app/exchange/writers.h"

namespace vorn::exchange {
namespace {

constexpr int kGrey = 128;

const ColmapCameraModel& smallest_model(const SourceCamera& camera) {
  const bool square = camera.fx == camera.fy;
  const bool tangential = camera.p[0] != 0.0 || camera.p[1] != 0.0;
  const char* name = "FULL_OPENCV";
  if (camera.k[2] == 0.0) {
    const bool radial = camera.k[0] != 0.0 || camera.k[1] != 0.0;
    if (!radial && !tangential) {
      name = square ? "SIMPLE_PINHOLE" : "PINHOLE";
    } else if (tangential || !square) {
      name = "OPENCV";
    } else {
      name = camera.k[1] == 0.0 ? "SIMPLE_RADIAL" : "RADIAL";
    }
  }
  return *find_colmap_camera_model(std::string_view(name));
}

double param(const SourceCamera& camera, char role) {
  switch (role) {
    case 'f':
    case 'a':
      return camera.fx;
    case 'b':
      return camera.fy;
    case 'x':
      return camera.cx;
    case 'y':
      return camera.cy;
    case '1':
      return camera.k[0];
    case '2':
      return camera.k[1];
    case '3':
      return camera.k[2];
    case 'p':
      return camera.p[0];
    case 'q':
      return camera.p[1];
    default:
      return 0.0;
  }
}

// Numbers that the identifiers are, or 1, 2, 3, ... when they are not all different numbers.
template <class Record>
std::vector<std::uint64_t> numbers_of(const std::vector<Record>& records, std::uint64_t largest) {
  std::vector<std::uint64_t> numbers;
  std::unordered_set<std::uint64_t> taken;
  numbers.reserve(records.size());
  taken.reserve(records.size());
  for (const Record& record : records) {
    std::uint64_t number = 0;
    const char* const end = record.id.data() + record.id.size();
    const auto parsed = std::from_chars(record.id.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number > largest ||
        !taken.insert(number).second) {
      for (std::size_t i = 0; i < records.size(); ++i) {
        if (i < numbers.size()) {
          numbers[i] = i + 1;
        } else {
          numbers.push_back(i + 1);
        }
      }
      return numbers;
    }
    numbers.push_back(number);
  }
  return numbers;
}

// A point's measurement: in which image, and its place there.
struct Track {
  std::uint32_t image;
  std::uint32_t feature;
};

class ColmapWriter {
 public:
  ColmapWriter(const Reconstruction& model, const std::string& directory, bool binary)
      : model_(model),
        directory_(directory),
        binary_(binary),
        files_(colmap_files(directory, binary)),
        camera_ids_(numbers_of(model.cameras, 0xFFFFFFFEU)),
        point_ids_(numbers_of(model.points, 0x7FFFFFFFFFFFFFFEU)) {}

  void write() const {
    std::error_code error;
    std::filesystem::create_directories(directory_, error);
    OutputFiles outputs(OutputMode::replaced);
    write_cameras(OutputFile(outputs, files_[0]));
    write_images(OutputFile(outputs, files_[1]));
    write_points(OutputFile(outputs, files_[2]));
    finish(outputs);
  }

 private:
  void write_cameras(OutputFile out) const {
    if (binary_) {
      out.bytes_of(std::uint64_t{model_.cameras.size()});
    } else {
      out << "# CAMERA_ID MODEL WIDTH HEIGHT PARAMS[]\n";
    }
    for (std::size_t i = 0; i < model_.cameras.size(); ++i) {
      const SourceCamera& camera = model_.cameras[i];
      const ColmapCameraModel& kind = smallest_model(camera);
      if (binary_) {
        out.bytes_of(static_cast<std::uint32_t>(camera_ids_[i])).bytes_of(kind.id);
        out.bytes_of(std::uint64_t(camera.columns)).bytes_of(std::uint64_t(camera.rows));
        for (const char role : kind.layout) out.bytes_of(param(camera, role));
      } else {
        out << camera_ids_[i] << ' ' << kind.name << ' ' << camera.columns << ' ' << camera.rows;
        for (const char role : kind.layout) out << ' ' << param(camera, role);
        out << '\n';
      }
    }
  }

  void write_images(OutputFile out) const {
    if (binary_) {
      out.bytes_of(std::uint64_t{model_.images.size()});
    } else {
      out << "# IMAGE_ID QW QX QY QZ TX TY TZ CAMERA_ID NAME\n# POINTS2D[] as X Y POINT3D_ID\n";
    }
    for (std::size_t i = 0; i < model_.images.size(); ++i) {
      const SourceImage& image = model_.images[i];
      const auto camera =
          static_cast<std::uint32_t>(camera_ids_[static_cast<std::size_t>(image.camera)]);
      const auto q = quaternion_of(image.pose.r);
      if (binary_) {
        out.bytes_of(static_cast<std::uint32_t>(i + 1));
        for (const double value : q) out.bytes_of(value);
        for (const double value : image.pose.offset) out.bytes_of(value);
        out.bytes_of(camera) << image.name << '\0';
        out.bytes_of(std::uint64_t{image.rays.size()});
      } else {
        out << i + 1;
        for (const double value : q) out << ' ' << value;
        for (const double value : image.pose.offset) out << ' ' << value;
        out << ' ' << camera << ' ' << image.name << '\n';
      }
      write_features(out, image);
    }
  }

  void write_features(OutputFile& out, const SourceImage& image) const {
    const char* separator = "";
    for (const SourceRay& ray : image.rays) {
      const std::uint64_t id = point_ids_[static_cast<std::size_t>(ray.point)];
      if (binary_) {
        out.bytes_of(ray.xy[0]).bytes_of(ray.xy[1]).bytes_of(id);
      } else {
        out << separator << ray.xy[0] << ' ' << ray.xy[1] << ' ' << id;
        separator = " ";
      }
    }
    if (!binary_) out << '\n';
  }

  void write_points(OutputFile out) const {
    std::vector<std::vector<Track>> tracks(model_.points.size());
    std::vector<double> errors(model_.points.size(), 0.0);
    for (std::size_t i = 0; i < model_.images.size(); ++i) {
      const SourceImage& image = model_.images[i];
      for (std::size_t k = 0; k < image.rays.size(); ++k) {
        const auto number = static_cast<std::size_t>(image.rays[k].point);
        const Pixel xy = project(model_, image, model_.points[number].xyz).xy;
        errors[number] += std::hypot(xy[0] - image.rays[k].xy[0], xy[1] - image.rays[k].xy[1]);
        tracks[number].push_back(
            {static_cast<std::uint32_t>(i + 1), static_cast<std::uint32_t>(k)});
      }
    }
    if (binary_) {
      out.bytes_of(std::uint64_t{model_.points.size()});
    } else {
      out << "# POINT3D_ID X Y Z R G B ERROR TRACK[] as IMAGE_ID POINT2D_IDX\n";
    }
    for (std::size_t i = 0; i < model_.points.size(); ++i) {
      const double error =
          tracks[i].empty() ? 0.0 : errors[i] / static_cast<double>(tracks[i].size());
      write_point(out, i, error, tracks[i]);
    }
  }

  void write_point(OutputFile& out, std::size_t i, double error,
                   const std::vector<Track>& track) const {
    const Vec3& xyz = model_.points[i].xyz;
    if (binary_) {
      out.bytes_of(point_ids_[i]);
      for (const double value : xyz) out.bytes_of(value);
      for (int k = 0; k < 3; ++k) out.bytes_of(static_cast<std::uint8_t>(kGrey));
      out.bytes_of(error).bytes_of(std::uint64_t{track.size()});
      for (const auto& [image, feature] : track) out.bytes_of(image).bytes_of(feature);
      return;
    }
    out << point_ids_[i];
    for (const double value : xyz) out << ' ' << value;
    for (int k = 0; k < 3; ++k) out << ' ' << kGrey;
    out << ' ' << error;
    for (const auto& [image, feature] : track) out << ' ' << image << ' ' << feature;
    out << '\n';
  }

  const Reconstruction& model_;
  std::string directory_;
  bool binary_;
  std::vector<std::string> files_;
  std::vector<std::uint64_t> camera_ids_;
  std::vector<std::uint64_t> point_ids_;
};

}  // namespace

std::vector<std::string> colmap_files(const std::string& directory, bool binary) {
  std::vector<std::string> files;
  for (const char* const part : {"cameras", "images", "points3D"}) {
    const std::string name = std::string(part) + (binary ? ".bin" : ".txt");
    files.push_back((std::filesystem::path(directory) / name).string());
  }
  return files;
}

void write_colmap(const Reconstruction& model, const std::string& directory, bool binary) {
  ColmapWriter(model, directory, binary).write();
}

}  // namespace vorn::exchange
