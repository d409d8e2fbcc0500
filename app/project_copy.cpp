#include "app/project_copy.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <string_view>

#include "app/exchange/source.h"
#include "driver/paths.h"
#include "geometry/ext_orientation.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"
#include "text/keywords.h"
#include "text/records.h"
#include "text/token_reader.h"

namespace vorn::app {
namespace {

constexpr NumberFormat kNumber = shortest();

// A standard deviation as the thresholds of any settings understand it.
double written(double sd) {
  if (ls_params().is_observed(sd)) return sd;
  return state_of_sd(sd) == ParamState::unknown ? ls_params().smaxu : ls_params().sminu;
}

// As files spell it.
std::string keyword_of(const ImageGeometry& geometry) {
  std::string keyword(geometry.get_keyword());
  std::transform(keyword.begin(), keyword.end(), keyword.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return keyword;
}

class CopyWriter {
 public:
  CopyWriter(const BundleProject& project, const std::string& control_file,
             const std::string& directory, OutputFiles& outputs)
      : project_(project), directory_(directory), outputs_(outputs) {
    const PathParts parts = split_path(control_file);
    source_ = parts.drive + parts.directory;
    control_ = &open(parts.base + ".ctl");
    copy_files(control_file);
    write("image", "images.txt", [this](TextWriter& out) { write_images(out); });
    write("image-geometry", "orientations.txt", [this](TextWriter& out) { write_geometries(out); });
    write("image-crds", "image-points.txt", [this](TextWriter& out) { write_image_points(out); });
    write("obj-crds", "object-points.txt", [this](TextWriter& out) { write_points(out); });
    write("ctrl-supp", "roles.txt", [this](TextWriter& out) { write_roles(out); });
    write_if(project.ap_sets.count() > 0, "ap-set", "parameter-sets.txt", [this](TextWriter& out) {
      for (const APSet& set : project_.ap_sets) set.write(out);
    });
    write_if(project.pos_corrections.count() > 0, "pos-cor", "position-corrections.txt",
             [this](TextWriter& out) { write_corrections(out, project_.pos_corrections); });
    write_if(project.att_corrections.count() > 0, "att-cor", "attitude-corrections.txt",
             [this](TextWriter& out) { write_corrections(out, project_.att_corrections); });
    *control_ << kEndWord << '\n';
  }

 private:
  TextWriter& open(const std::string& name) {
    return outputs_.open((std::filesystem::path(directory_) / name).string());
  }

  template <class Write>
  void write(std::string_view keyword, const std::string& name, const Write& write) {
    *control_ << keyword << ' ' << name << '\n';
    TextWriter& out = open(name);
    write(out);
    out << kEndWord << '\n';
    outputs_.finish(out);
  }
  template <class Write>
  void write_if(bool there_are_any, std::string_view keyword, const std::string& name,
                const Write& write_records) {
    if (there_are_any) write(keyword, name, write_records);
  }

  // Settings and cameras, byte by byte.
  void copy_files(const std::string& control_file) {
    const exchange::Source text(control_file, exchange::Source::Kind::binary);
    TokenReader in(text.content());
    std::string keyword;
    std::string name;
    std::int32_t cameras = 0;
    while (in.read_word(keyword) && keyword != kEndWord && in.read_word(name)) {
      std::string copy;
      switch (lookup_keyword(keyword)) {
        case Keyword::params:
          copy = "params.txt";
          break;
        case Keyword::ls_params:
          copy = "ls-params.txt";
          break;
        case Keyword::camera:
          copy = ++cameras == 1 ? "camera.txt" : "camera-" + std::to_string(cameras) + ".txt";
          break;
        default:
          continue;
      }
      // What is compressed stays so.
      for (const std::string_view packed : {".gz", ".zst"}) {
        if (name.ends_with(packed)) copy += packed;
      }
      const std::filesystem::path path(name);
      const exchange::Source file(
          path.is_absolute() ? name : (std::filesystem::path(source_) / path).string(),
          exchange::Source::Kind::binary);
      *control_ << keyword << ' ' << copy << '\n';
      TextWriter& out = open(copy);
      out << file.content();
      outputs_.finish(out);
    }
  }

  void write_images(TextWriter& out) const {
    for (const BundleImage& image : project_.images) {
      out << "image-frame " << image.id << ' ' << image.geometry_id << ' ' << image.camera_id
          << '\n';
    }
  }

  void write_geometries(TextWriter& out) const {
    out << "indiv-type\n";
    for (const ImageGeometry& geometry : project_.image_geometries) {
      const auto* const orientation = dynamic_cast<const ExtOrientation*>(&geometry);
      const bool has_angles = orientation != nullptr && geometry.num_values() == 6;
      out << keyword_of(geometry) << ' ' << geometry.id << (has_angles ? " rad " : " ")
          << kNumber(geometry.exposure_time) << '\n';
      if (orientation == nullptr) {
        for (std::int32_t k = 0; k < geometry.num_values(); ++k) {
          out << kNumber(geometry.value(k)) << ' ' << kNumber(written(geometry.std_dev(k))) << '\n';
        }
        continue;
      }
      for (const auto& [first, end] : {std::pair(0, 3), std::pair(3, geometry.num_values())}) {
        for (std::int32_t k = first; k < end; ++k) out << ' ' << kNumber(geometry.value(k));
        out << "  ";
        for (std::int32_t k = first; k < end; ++k) {
          out << ' ' << kNumber(written(geometry.std_dev(k)));
        }
        out << '\n';
      }
    }
  }

  void write_image_points(TextWriter& out) const {
    for (const BundleImage& image : project_.images) {
      out << image.id << " 1\n";
      for (const ImagePoint& point : image.points) {
        if (!std::isfinite(point.x) || !std::isfinite(point.y)) continue;
        out << point.id << ' ' << kNumber(point.x) << ' ' << kNumber(point.y) << ' '
            << kNumber(point.sx) << ' ' << kNumber(point.sy) << '\n';
      }
      out << "-1\n";
    }
  }

  void write_points(TextWriter& out) const {
    out << "indiv-sdev\n";
    for (const ObjectPoint& point : project_.object_points) {
      out << point.id;
      for (const double value : point.xyz) out << ' ' << kNumber(value);
      for (const double sd : point.std_devs) out << ' ' << kNumber(written(sd));
      out << '\n';
    }
  }

  // Check points only: the standard deviations tell all other roles.
  void write_roles(TextWriter& out) const {
    for (const ObjectPoint& point : project_.object_points) {
      if (point.type != PointType::check) continue;
      out << point.id << " ch ";
      for (std::size_t k = 0; k < 3; ++k) {
        if (point.check[k]) out << "xyz"[k];
      }
      out << '\n';
    }
  }

  template <class Correction>
  static void write_corrections(TextWriter& out, const OwnedList<Correction>& corrections) {
    for (const Correction& correction : corrections) {
      out << correction.id;
      for (const std::string& id : correction.eo_ids) out << ' ' << id;
      out << ' ' << kEndWord << '\n'
          << kNumber(correction.t0) << '\n'
          << correction.polynomial.num_values() / 3 << '\n';
      const auto& polynomial = correction.polynomial;
      for (std::size_t k = 0; k < polynomial.coeffs.size(); ++k) {
        for (std::size_t c = 0; c < 3; ++c) {
          out << ' ' << kNumber(polynomial.coeffs[k][c]) << ' '
              << kNumber(written(polynomial.coeff_std_devs[k][c]));
        }
        out << '\n';
      }
    }
  }

  const BundleProject& project_;
  std::string directory_;
  std::string source_;
  OutputFiles& outputs_;
  TextWriter* control_ = nullptr;
};

}  // namespace

void write_project_copy(const BundleProject& project, const std::string& control_file,
                        const std::string& directory, OutputFiles& outputs) {
  CopyWriter(project, control_file, directory, outputs);
}

}  // namespace vorn::app
