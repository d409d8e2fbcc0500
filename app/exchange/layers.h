#pragma once

#include <map>
#include <string>
#include <vector>

#include "app/exchange/feature_layer.h"
#include "driver/bundle_project.h"

// A project as tables of features.

namespace vorn::exchange {

// Horizontal covariance of a point: xx, xy, yy, and the variance of Z, in squares of object units.
struct PointCovariance {
  double xx;
  double xy;
  double yy;
  double zz;
};
using PointCovariances = std::map<const ObjectPoint*, PointCovariance>;

// Object points, images at their projection centres, residuals of control points and differences of
// check points as lines, error ellipses of points whose covariance is given, and residuals of image
// points as a table without positions. Lines and ellipses are drawn `exaggeration` times as large;
// their fields hold the true values.
std::vector<Layer> layers_of(const BundleProject& project, const PointCovariances& covariances,
                             double exaggeration);

// A file of comma-separated values per layer: PATH a folder, or the file of the points whose name
// the names of the others begin with. Here and below, earlier files are replaced together.
void write_csv(const std::vector<Layer>& layers, const std::string& path);
std::vector<std::string> csv_files(const std::vector<Layer>& layers, const std::string& path);
// A collection of features per layer with a shape: PATH a folder, or one file of all with their
// layer as a member. `crs` is an EPSG code ("EPSG:25832") or empty.
void write_geojson(const std::vector<Layer>& layers, const std::string& path,
                   const std::string& crs);
std::vector<std::string> geojson_files(const std::vector<Layer>& layers, const std::string& path);
// One GeoPackage of all layers, by the module for it.
void write_geopackage(const std::vector<Layer>& layers, const std::string& path,
                      const std::string& crs);
// Throws ExchangeError where this program has no such module or cannot load it.
void require_geopackage();

// Object points in the Polygon File Format as text; control red, check points blue.
void write_ply(const BundleProject& project, const std::string& path);

}  // namespace vorn::exchange
