// Writes a reconstruction as a project. The lens of the common formats adds its distortion to the
// ideal projection as the additional parameters do, so its terms map one by one. With c = fx p_c
// the focal length, p_c and p_r the pixel sizes, and U = (x right, y up) against (u right, v down):
//
//   p_r = p_c fx/fy     xp = (cx - o - (w-1)/2) p_c     yp = -(cy - o - (h-1)/2) p_r
//   K1 = k1/c^2   K2 = k2/c^4   K3 = k3/c^6   P1 = p2/c   P2 = -p1/c
//
// where o is the coordinate of the centre of the first pixel. Formats whose cameras look along -z
// have the y axis upwards already and no tangential terms.

#include "app/exchange/project_writer.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "app/exchange/datum.h"
#include "app/exchange/output_file.h"
#include "app/exchange/source.h"
#include "geometry/rotations.h"
#include "text/text_writer.h"

namespace vorn::exchange {
namespace {

constexpr NumberFormat kNumber = shortest();
constexpr double kFixed = 1e-31;
constexpr double kFree = 1e31;
constexpr double kMillimetres = 1e3;
constexpr double kMicrometres = 1e6;

// The middle angle of a triple must stay away from 90 degrees.
constexpr double kMiddleAngleLimit = 0.95;

// Corrections below this share of the depth end the iterations.
constexpr double kRelativeLimit = 1e-6;

struct PixelSize {
  double column;  // [m]
  double row;
};

PixelSize pixel_size(const SourceCamera& camera, double column) {
  return {column, column * camera.fx / camera.fy};
}

void write_triple(TextWriter& out, const Vec3& v) {
  out << ' ' << kNumber(v[0]) << ' ' << kNumber(v[1]) << ' ' << kNumber(v[2]) << '\n';
}

// Half the format of a camera whose source has no image size: as far as its points reach [px].
Pixel reach(const Reconstruction& model, std::size_t camera) {
  Pixel reach{1.0, 1.0};
  for (const SourceImage& image : model.images) {
    if (static_cast<std::size_t>(image.camera) != camera) continue;
    for (const SourceRay& ray : image.rays) {
      for (std::size_t k = 0; k < 2; ++k) reach[k] = std::max(reach[k], std::abs(ray.xy[k]));
    }
  }
  return reach;
}

void write_cameras(TextWriter& out, const Reconstruction& model, const ProjectSettings& settings) {
  for (std::size_t i = 0; i < model.cameras.size(); ++i) {
    const SourceCamera& camera = model.cameras[i];
    const PixelSize size = pixel_size(camera, settings.pixel_size);
    const double c_mm = camera.fx * size.column * kMillimetres;
    if (!model.has_sizes()) {
      const Pixel half = reach(model, i);
      out << "camera-frame " << camera.id << ' '
          << pixel_size_comment(model.format, settings.pixel_size) << "\n " << kNumber(c_mm)
          << "\n 0 0\n " << kNumber(2.0 * half[0] * size.column * kMillimetres) << ' '
          << kNumber(2.0 * half[1] * size.row * kMillimetres) << '\n';
      continue;
    }
    const double xp = (camera.cx - model.first_pixel - 0.5 * (camera.columns - 1)) * size.column;
    const double yp = (model.first_pixel + 0.5 * (camera.rows - 1) - camera.cy) * size.row;
    out << "camera-ccd " << camera.id << ' ' << as_word(camera.model) << "\n " << kNumber(c_mm)
        << "\n " << kNumber(xp * kMillimetres) << ' ' << kNumber(yp * kMillimetres) << "\n "
        << camera.columns << ' ' << camera.rows << "\n " << kNumber(size.column * kMicrometres)
        << ' ' << kNumber(size.row * kMicrometres) << '\n';
  }
  out << "stop-dep\n";
}

void write_images(TextWriter& out, const Reconstruction& model) {
  for (const SourceImage& image : model.images) {
    out << "image-frame " << image.name << ' ' << image.name << ' '
        << model.cameras[static_cast<std::size_t>(image.camera)].id << '\n';
  }
  out << "stop-dep\n";
}

// From image to object space, in axes x right, y up, z against the viewing direction.
Mat3 rotation_to_object(const Pose& pose, Axes axes) {
  Mat3 r = transposed(pose.r);
  if (axes == Axes::ahead) {
    for (Vec3& row : r) {
      row[1] = -row[1];
      row[2] = -row[2];
    }
  }
  return r;
}

void write_orientations(TextWriter& out, const Reconstruction& model, Datum datum) {
  const ImageDatum held = datum == Datum::image ? choose_image_datum(model) : ImageDatum{};
  out << "indiv-type\n";
  for (std::size_t i = 0; i < model.images.size(); ++i) {
    const SourceImage& image = model.images[i];
    const Mat3 r = rotation_to_object(image.pose, model.axes);
    const bool phi_first = std::abs(r[0][2]) > kMiddleAngleLimit;
    const Vec3 angles = phi_first ? pok_rot::params_from_matrix(r) : opk_rot::params_from_matrix(r);
    const bool all = held.image == static_cast<std::int32_t>(i);
    Vec3 centre_sd = all ? Vec3{kFixed, kFixed, kFixed} : Vec3{kFree, kFree, kFree};
    const Vec3 angle_sd = centre_sd;
    if (held.second.index == static_cast<std::int32_t>(i)) centre_sd[held.second.axis] = kFixed;
    out << (phi_first ? "ext-ori-pok-rot " : "ext-ori-opk-rot ") << image.name << " rad 0\n";
    write_triple(out, image.pose.centre());
    write_triple(out, centre_sd);
    write_triple(out, angles);
    write_triple(out, angle_sd);
  }
  out << "stop-dep\n";
}

void write_image_coords(TextWriter& out, const Reconstruction& model,
                        const ProjectSettings& settings) {
  const double factor = model.has_sizes() ? 1.0 : settings.pixel_size;
  for (const SourceImage& image : model.images) {
    if (image.rays.empty()) continue;
    out << image.name << ' ' << kNumber(factor) << '\n';
    for (const SourceRay& ray : image.rays) {
      out << model.points[static_cast<std::size_t>(ray.point)].id << ' '
          << kNumber(ray.xy[0] - model.first_pixel) << ' ' << kNumber(ray.xy[1] - model.first_pixel)
          << ' ' << kNumber(settings.sigma) << ' ' << kNumber(settings.sigma) << '\n';
    }
    out << "-1\n";
  }
  out << "stop-dep\n";
}

void write_object_coords(TextWriter& out, const Reconstruction& model,
                         const std::vector<ControlPoint>& control, Datum datum) {
  std::map<std::int32_t, Vec3> special;
  for (const ControlPoint& point : control) special[point.point] = point.std_devs;
  if (datum == Datum::points) {
    for (const HeldCoordinate& held : choose_point_datum(model)) {
      special.try_emplace(held.index, Vec3{kFree, kFree, kFree}).first->second[held.axis] = kFixed;
    }
  }
  out << "indiv-sdev\n";
  auto next = special.begin();
  for (std::size_t i = 0; i < model.points.size(); ++i) {
    const SourcePoint& point = model.points[i];
    out << point.id << ' ' << kNumber(point.xyz[0]) << ' ' << kNumber(point.xyz[1]) << ' '
        << kNumber(point.xyz[2]);
    if (next != special.end() && next->first == static_cast<std::int32_t>(i)) {
      write_triple(out, (next++)->second);
    } else {
      out << " 1e31 1e31 1e31\n";
    }
  }
  out << "stop-dep\n";
}

void write_ap_sets(TextWriter& out, const Reconstruction& model, const ProjectSettings& settings) {
  std::vector<char> measured(model.cameras.size(), 0);
  for (const SourceImage& image : model.images) {
    if (!image.rays.empty()) measured[static_cast<std::size_t>(image.camera)] = 1;
  }
  for (std::size_t i = 0; i < model.cameras.size(); ++i) {
    const SourceCamera& camera = model.cameras[i];
    const double c = camera.fx * settings.pixel_size;
    const Lens asked = settings.free_own ? camera.own : settings.free;
    // Nothing determines the lens of a camera without images.
    const Lens free = measured[i] != 0 ? asked : Lens::none;
    const auto write = [&](double value, Lens part) {
      out << ' ' << kNumber(value) << (has(free, part) ? " 1e31\n" : " 1e-31\n");
    };
    out << "australis " << camera.id << ' ' << camera.id << '\n';
    write(0.0, Lens::cx);
    write(0.0, Lens::cy);
    write(0.0, Lens::f);
    write(camera.k[0] / (c * c), Lens::k1);
    write(camera.k[1] / (c * c * c * c), Lens::k2);
    write(camera.k[2] / (c * c * c * c * c * c), Lens::k3);
    write(camera.p[1] / c, Lens::p2);
    write((0.0 - camera.p[0]) / c, Lens::p1);
    write(0.0, Lens::b1);
    write(0.0, Lens::b2);
  }
  out << "stop-dep\n";
}

// The roles of check points. An unknown height is not checked.
void write_check_points(TextWriter& out, const Reconstruction& model,
                        const std::vector<ControlPoint>& control) {
  for (const ControlPoint& point : control) {
    if (!point.is_check) continue;
    out << model.points[static_cast<std::size_t>(point.point)].id << " ch "
        << (point.std_devs[2] < kFree ? "xyz\n" : "xy\n");
  }
  out << "stop-dep\n";
}

void write_control_file(TextWriter& out, bool with_check_points) {
  constexpr const char* kKeywords[] = {"params",         "ls-params",  "camera",   "image",
                                       "image-geometry", "image-crds", "obj-crds", "ap-set"};
  static_assert(std::size(kKeywords) == std::size(kProjectFiles));
  for (std::size_t i = 0; i < std::size(kKeywords); ++i) {
    out << left_aligned(kKeywords[i], 15) << ' ' << kProjectFiles[i] << '\n';
  }
  if (with_check_points) {
    out << left_aligned("ctrl-supp", 15) << ' ' << kCheckPointFile << '\n';
  }
  out << "stop-dep\n";
}

}  // namespace

std::string pixel_size_comment(const std::string& format, double pixel_size) {
  char text[64];
  char* const end = write_number(text, pixel_size * kMicrometres, kNumber);
  return format + ",pixel=" + std::string(text, end) + "um";
}

void write_params(TextWriter& out, bool keep_single_rays) {
  out << (keep_single_rays ? '1' : '0') << "\n0 0 0 0\n0 0 0 0 0\n0 0\n5 5\nnone none none none\n";
}

void write_ls_params(TextWriter& out, double sigma0_m, double limit) {
  // Products of given numbers, without the digits that their rounding adds.
  constexpr NumberFormat kProduct = general(0, 10);
  out << kProduct(sigma0_m) << "\n50\n1 1 1 1\n"
      << kProduct(limit) << ' ' << kProduct(limit) << " 1e-6 1e-8\n1e-30 1e30  1e-31 1e31\n"
      << "1e10 1e10\n0.8\n1.0 0.001\n1.96\n1e-4\n"
      << kProduct(3.0 * sigma0_m * kMicrometres) << "\nm\ndeg\nnative\n";
}

void check_project_name(const std::string& name) {
  if (!name.empty() && as_word(name) == name && name.find_first_of("/\\:") == std::string::npos) {
    return;
  }
  throw ExchangeError("'" + name + "' is no name of a project");
}

void write_project(const Reconstruction& model, const std::vector<ControlPoint>& control,
                   const ProjectSettings& settings, const std::string& directory) {
  OutputFiles outputs(OutputMode::replaced);
  const auto open = [&](const std::string& name) -> TextWriter& {
    return outputs.open(directory + '/' + name);
  };
  const double depth = median_depth(model);
  // Control that is measured in one image only takes part.
  write_params(open(kProjectFiles[0]), !control.empty());
  write_ls_params(open(kProjectFiles[1]), settings.sigma * settings.pixel_size,
                  depth > 0.0 ? kRelativeLimit * depth : 0.001);
  write_cameras(open(kProjectFiles[2]), model, settings);
  write_images(open(kProjectFiles[3]), model);
  write_orientations(open(kProjectFiles[4]), model, settings.datum);
  write_image_coords(open(kProjectFiles[5]), model, settings);
  write_object_coords(open(kProjectFiles[6]), model, control, settings.datum);
  write_ap_sets(open(kProjectFiles[7]), model, settings);
  const bool has_check_points =
      std::any_of(control.begin(), control.end(), [](const auto& point) { return point.is_check; });
  if (has_check_points) write_check_points(open(kCheckPointFile), model, control);
  write_control_file(open(settings.name + ".ctl"), has_check_points);
  finish(outputs);
}

}  // namespace vorn::exchange
