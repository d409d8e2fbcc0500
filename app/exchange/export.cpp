#include "app/exchange/export.h"

#include <array>
#include <cmath>

#include "app/exchange/format_table.h"
#include "app/exchange/layers.h"
#include "app/exchange/output_file.h"
#include "app/exchange/project_model.h"
#include "app/exchange/source.h"
#include "app/exchange/writers.h"
#include "quality/quality.h"
#include "text/text_writer.h"

namespace vorn::exchange {
namespace {

void print_summary(const Reconstruction& model, const ExportRequest& request) {
  constexpr NumberFormat kPixels = general(0, 6);
  constexpr NumberFormat kCost = general(0, 12);
  double sum = 0.0;
  for (const SourceImage& image : model.images) {
    for (const SourceRay& ray : image.rays) {
      const Pixel xy =
          project(model, image, model.points[static_cast<std::size_t>(ray.point)].xyz).xy;
      const double dx = xy[0] - ray.xy[0];
      const double dy = xy[1] - ray.xy[1];
      sum += dx * dx + dy * dy;
    }
  }
  const auto rays = model.count_rays();
  TextWriter& out = standard_output();
  out << "Export to " << request.format << ": " << request.output << "\n\n"
      << "  cameras  ";
  out.integer(static_cast<std::int64_t>(model.cameras.size()), 10) << "\n  images   ";
  out.integer(static_cast<std::int64_t>(model.images.size()), 10) << "\n  points   ";
  out.integer(static_cast<std::int64_t>(model.points.size()), 10) << "\n  rays     ";
  out.integer(rays, 10) << '\n';
  for (const std::string& note : model.notes) out << "  note: " << note << '\n';
  out << "\n  residuals: rms of a coordinate "
      << kPixels(rays > 0 ? std::sqrt(0.5 * sum / static_cast<double>(rays)) : 0.0)
      << " px, half their sum of squares " << kCost(0.5 * sum) << " px^2\n";
}

template <LensForm Form, void (*Write)(const Reconstruction&, const std::string&)>
void export_model(BundleProject& project, const ExportRequest& request) {
  const Reconstruction model = model_of_project(project, Form, request.pixel_size_um / 1e6);
  Write(model, request.output);
  print_summary(model, request);
}

// Horizontal covariances of the points of an adjusted project. Empty when they are not wanted or
// not defined.
PointCovariances covariances_of(BundleProject& project, const ExportRequest& request) {
  PointCovariances covariances;
  if (!request.ellipses || project.num_iterations == 0) return covariances;
  const QualityResults results = find_quality(project, {});
  if (!results.has_figures) return covariances;
  for (const PointResult& point : results.points) {
    const Symmetric3& c = point.covariance;
    if (c[0] > 0.0 && c[3] > 0.0) covariances[point.point] = {c[0], c[1], c[3], c[5]};
  }
  return covariances;
}

void print_layers(const std::vector<Layer>& layers, const ExportRequest& request) {
  TextWriter& out = standard_output();
  out << "Export to " << request.format << ": " << request.output << "\n\n";
  for (const Layer& layer : layers) {
    out << "  " << left_aligned(layer.name, 18);
    out.integer(static_cast<std::int64_t>(layer.features.size()), 10) << '\n';
  }
}

template <void (*Write)(const std::vector<Layer>&, const std::string&, const std::string&)>
void export_layers(BundleProject& project, const ExportRequest& request) {
  const std::vector<Layer> layers =
      layers_of(project, covariances_of(project, request), request.exaggeration);
  Write(layers, request.output, request.crs);
  print_layers(layers, request);
}

void write_csv_tables(const std::vector<Layer>& layers, const std::string& path,
                      const std::string&) {
  write_csv(layers, path);
}

void export_ply(BundleProject& project, const ExportRequest& request) {
  write_ply(project, request.output);
  standard_output() << "Export to ply: " << request.output << "\n\n  points   "
                    << project.object_points.count() << '\n';
}

template <bool Binary>
void write_colmap_model(const Reconstruction& model, const std::string& path) {
  write_colmap(model, path, Binary);
}
template <bool Binary>
std::vector<std::string> colmap_model_files(const std::string& path) {
  return colmap_files(path, Binary);
}
std::vector<std::string> single_file(const std::string& path) { return {path}; }
// A project without anything has all layers.
template <std::vector<std::string> (*Files)(const std::vector<Layer>&, const std::string&)>
std::vector<std::string> files_of_layers(const std::string& path) {
  return Files(layers_of(BundleProject(), {}, 1.0), path);
}

struct Format {
  const char* name;
  void (*write)(BundleProject& project, const ExportRequest& request);
  std::vector<std::string> (*files)(const std::string& path);
};
constexpr auto kFormats = std::to_array<Format>({
    {"colmap", export_model<LensForm::full, write_colmap_model<false>>, colmap_model_files<false>},
    {"colmap-binary", export_model<LensForm::full, write_colmap_model<true>>,
     colmap_model_files<true>},
    {"bal", export_model<LensForm::radial, write_bal>, single_file},
    {"bundler", export_model<LensForm::radial, write_bundler>, single_file},
    {"ply", export_ply, single_file},
    {"csv", export_layers<write_csv_tables>, files_of_layers<csv_files>},
    {"geojson", export_layers<write_geojson>, files_of_layers<geojson_files>},
    {"gpkg", export_layers<write_geopackage>, single_file},
});

bool is_epsg_code(const std::string& crs) {
  constexpr std::string_view kPrefix = "EPSG:";
  return crs.starts_with(kPrefix) && crs.size() > kPrefix.size() && crs.size() < 12 &&
         crs.find_first_not_of("0123456789", kPrefix.size()) == std::string::npos;
}

}  // namespace

void check_export(const ExportRequest& request, const std::string& control_file) {
  const Format& format = format_named(kFormats, request.format);
  if (request.format == "gpkg") require_geopackage();
  if (!request.crs.empty() && !is_epsg_code(request.crs)) {
    throw ExchangeError("'" + request.crs + "' is no coordinate system; write EPSG:25832, say");
  }
  require_positive(request.exaggeration, "the exaggeration");
  if (request.pixel_size_um != 0.0) require_positive(request.pixel_size_um, "the pixel size");
  keep_project(control_file, format.files(request.output));
}

void export_project(BundleProject& project, const ExportRequest& request) {
  format_named(kFormats, request.format).write(project, request);
}

void export_given_project(const std::string& control_file, const ExportRequest& request) {
  GivenProject given(control_file);
  export_project(given.project(), request);
}

}  // namespace vorn::exchange
