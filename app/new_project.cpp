#include "app/new_project.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string_view>

#include "app/exchange/output_file.h"
#include "app/exchange/project_writer.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

constexpr NumberFormat kNumber = shortest();
// Products of given numbers, without the digits that their rounding adds.
constexpr NumberFormat kProduct = general(0, 10);

void put(TextWriter& out, const Vec3& values) {
  for (const double value : values) out << ' ' << kNumber(value);
}

void write_options(TextWriter& out, const NewProject&) {
  exchange::write_params(out, false);
  out << "\n0, 1: keep points seen once; four listings of the data; five of each iteration; two "
         "for\n"
         "debugging; rows and columns of the grids of effects; files of the normal equations.\n";
}

// A hundredth of a pixel on the object; what is adjusted further is lost in the noise.
double convergence_limit(const NewProject& project) {
  double sum = 0.0;
  std::int64_t count = 0;
  for (const MeasuredImage& image : project.images) {
    for (const auto& [id, point] : project.points) {
      sum += length(point.xyz - image.centre);
      ++count;
    }
  }
  constexpr double kPart = 0.01;
  const double pixel = project.pixel_um * 1e-3 / project.c_mm;
  const double limit = count > 0 ? kPart * pixel * sum / static_cast<double>(count) : 0.0;
  return limit > 0.0 ? std::pow(10.0, std::floor(std::log10(limit))) : 0.001;
}

void write_settings(TextWriter& out, const NewProject& project) {
  exchange::write_ls_params(out, project.sigma_px * project.pixel_um * 1e-6,
                            convergence_limit(project));
  out << "\n"
         "Standard deviation of an image coordinate [m]; most iterations; what convergence looks "
         "at: points,\ncentres, rotations, others; its limits [object unit, object unit, rad, -]; "
         "below the first a\nstandard deviation means fixed, above the second free, and what is "
         "written for both; weights that\nfix; limit of correlations; increments; limit of "
         "significance; limit of a check; residuals are listed\nfrom this size on [um]; units of "
         "objects and angles; solver.\n";
}

void write_camera(TextWriter& out, const NewProject& project) {
  out << "camera-ccd  camera  new\n  " << kNumber(project.c_mm) << "\n  0 0\n  " << project.columns
      << ' ' << project.rows << "\n  " << kNumber(project.pixel_um) << ' '
      << kNumber(project.pixel_um)
      << "\nstop-dep\n\nType, identifier, comment; principal distance c [mm]; principal point from "
         "the centre [mm];\ncolumns and rows; size of a pixel along a row and a column [um].\n";
}

void write_calibration(TextWriter& out, const NewProject&) {
  out << "australis  calibration  camera\n";
  constexpr const char* kParameters[] = {"0 1e31",  "0 1e31", "0 1e31", "0 1e31",  "0 1e31",
                                         "0 1e-31", "0 1e31", "0 1e31", "0 1e-31", "0 1e-31"};
  for (const char* const parameter : kParameters) out << "  " << parameter << '\n';
  out << "stop-dep\n\nModel, identifier, camera; then dxp, dyp, dc [m], K1, K2, K3, P1, P2, b1, b2 "
         "with their standard\ndeviations: 1e31 free, 1e-31 fixed.\n";
}

void write_images(TextWriter& out, const NewProject& project) {
  for (const MeasuredImage& image : project.images) {
    out << "image-frame " << image.id << ' ' << image.id << " camera\n";
  }
  out << "stop-dep\n\nType, image, its orientation, its camera.\n";
}

void write_orientations(TextWriter& out, const NewProject& project) {
  out << "common-type\next-ori-opk-rot deg 0 0\n1e31 1e31 1e31  1e31 1e31 1e31\n";
  for (const MeasuredImage& image : project.images) {
    out << image.id;
    for (const double value : image.centre) out << ' ' << kProduct(value);
    for (const double angle : image.angles_deg) out << ' ' << kProduct(angle);
    out << '\n';
  }
  out << "stop-dep\n\nType, angle unit, no times, no matrices; standard deviations of centre and "
         "angles, 1e31: free; then\nimage, X, Y, Z, omega, phi, kappa. These are approximations.\n";
}

void write_image_points(TextWriter& out, const NewProject& project) {
  for (const MeasuredImage& image : project.images) {
    out << image.id << " 1\n";
    for (const MeasuredPoint& point : image.points) {
      out << "  " << point.id << ' ' << kNumber(point.column) << ' ' << kNumber(point.row) << "  "
          << kNumber(project.sigma_px) << ' ' << kNumber(project.sigma_px) << '\n';
    }
    out << "-1\n";
  }
  out << "stop-dep\n\nImage, factor; point, column, row, their standard deviations [pixels]; the "
         "first pixel is 0 0.\n";
}

void write_object_points(TextWriter& out, const NewProject& project) {
  out << "indiv-sdev\n";
  for (const auto& [id, point] : project.points) {
    out << id;
    put(out, point.xyz);
    for (const double sd : point.std_devs) {
      if (point.is_check) {
        out << " 1e31";
      } else if (sd > 0.0) {
        out << ' ' << kNumber(sd);
      } else {
        out << " 1e-31";
      }
    }
    out << '\n';
  }
  out << "stop-dep\n\nPoint, X, Y, Z, their standard deviations: 1e-31 fixed, 1e31 free, otherwise "
         "observed. All other points\nare intersected from their rays.\n";
}

void write_check_points(TextWriter& out, const NewProject& project) {
  for (const auto& [id, point] : project.points) {
    if (point.is_check) out << id << " ch xyz\n";
  }
  out << "stop-dep\n\nCheck points take no part; their coordinates are compared with the adjusted "
         "ones.\n";
}

bool always(const NewProject&) { return true; }

// A data file: how the control file calls it, who writes it, and when there is one.
struct Part {
  std::string_view keyword;
  const char* file;
  void (*write)(TextWriter& out, const NewProject& project);
  bool (*is_wanted)(const NewProject& project);
};
constexpr Part kParts[] = {
    {"params", "params.txt", write_options, always},
    {"ls-params", "ls-params.txt", write_settings, always},
    {"camera", "camera.txt", write_camera, always},
    {"image", "images.txt", write_images, always},
    {"image-geometry", "orientations.txt", write_orientations, always},
    {"image-crds", "image-points.txt", write_image_points, always},
    {"obj-crds", "object-points.txt", write_object_points, always},
    {"ctrl-supp", "check-points.txt", write_check_points,
     [](const NewProject& project) { return project.has_checks(); }},
    {"ap-set", "calibration.txt", write_calibration,
     [](const NewProject& project) { return project.calibrate; }},
};

}  // namespace

bool NewProject::has_checks() const {
  return std::any_of(points.begin(), points.end(),
                     [](const auto& point) { return point.second.is_check; });
}

std::vector<std::string> NewProject::files() const {
  std::vector<std::string> files = {name + ".ctl"};
  for (const Part& part : kParts) {
    if (part.is_wanted(*this)) files.emplace_back(part.file);
  }
  return files;
}

void write_new_project(const NewProject& project, const std::string& directory) {
  OutputFiles outputs(OutputMode::replaced);
  const auto open = [&](const std::string& name) -> TextWriter& {
    return outputs.open((std::filesystem::path(directory) / name).string());
  };
  TextWriter& control_file = open(project.name + ".ctl");
  for (const Part& part : kParts) {
    if (!part.is_wanted(project)) continue;
    control_file << left_aligned(part.keyword, 15) << ' ' << part.file << '\n';
    part.write(open(part.file), project);
  }
  control_file
      << "stop-dep\n\nKeyword and file of each part. Nothing is read behind stop-dep: every "
         "file explains\nitself there.\n";
  exchange::finish(outputs);
}

}  // namespace vorn::app
