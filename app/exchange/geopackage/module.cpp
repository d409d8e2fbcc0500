// GeoPackage by GDAL.

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>
#include <ogr_api.h>
#include <ogr_srs_api.h>

#include <cmath>
#include <memory>
#include <string>
#include <type_traits>

#include "app/exchange/geopackage_module.h"
#include "app/exchange/source.h"

namespace vorn::exchange {
namespace {

struct CloseDataset {
  void operator()(void* dataset) const { GDALClose(dataset); }
};
struct DestroySystem {
  void operator()(OGRSpatialReferenceH system) const { OSRDestroySpatialReference(system); }
};
struct DestroyFeature {
  void operator()(OGRFeatureH feature) const { OGR_F_Destroy(feature); }
};
using Dataset = std::unique_ptr<void, CloseDataset>;
using System = std::unique_ptr<std::remove_pointer_t<OGRSpatialReferenceH>, DestroySystem>;
using GdalFeature = std::unique_ptr<std::remove_pointer_t<OGRFeatureH>, DestroyFeature>;

// GDAL's own messages become part of ours.
class QuietErrors {
 public:
  QuietErrors() { CPLPushErrorHandler(CPLQuietErrorHandler); }
  ~QuietErrors() { CPLPopErrorHandler(); }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
};

[[noreturn]] void refuse(const std::string& what) {
  throw ExchangeError(what + ": " + CPLGetLastErrorMsg());
}
[[noreturn]] void refuse() { throw ExchangeError(CPLGetLastErrorMsg()); }

OGRwkbGeometryType type_of(Shape shape) {
  switch (shape) {
    case Shape::point:
      return wkbPoint25D;
    case Shape::line:
      return wkbLineString25D;
    case Shape::polygon:
      return wkbPolygon25D;
    case Shape::none:
      break;
  }
  return wkbNone;
}

OGRFieldType type_of(FieldKind kind) {
  switch (kind) {
    case FieldKind::integer:
      return OFTInteger64;
    case FieldKind::real:
      return OFTReal;
    case FieldKind::text:
      break;
  }
  return OFTString;
}

OGRGeometryH geometry_of(const Layer& layer, const Feature& feature) {
  const OGRGeometryH geometry = OGR_G_CreateGeometry(type_of(layer.shape));
  const bool is_polygon = layer.shape == Shape::polygon;
  const OGRGeometryH points = is_polygon ? OGR_G_CreateGeometry(wkbLinearRing) : geometry;
  for (std::size_t i = 0; i < feature.vertices.size(); ++i) {
    const Vec3& x = feature.vertices[i];
    OGR_G_SetPoint(points, static_cast<int>(i), x[0], x[1], x[2]);
  }
  if (is_polygon) OGR_G_AddGeometryDirectly(geometry, points);
  return geometry;
}

void set_value(OGRFeatureH target, int field, const FieldValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) {
    OGR_F_SetFieldString(target, field, text->c_str());
  } else if (const auto* number = std::get_if<std::int64_t>(&value)) {
    OGR_F_SetFieldInteger64(target, field, *number);
  } else if (std::isfinite(std::get<double>(value))) {
    OGR_F_SetFieldDouble(target, field, std::get<double>(value));
  } else {
    OGR_F_SetFieldNull(target, field);
  }
}

void add_layer(GDALDatasetH dataset, const Layer& layer, OGRSpatialReferenceH system) {
  const OGRLayerH target =
      GDALDatasetCreateLayer(dataset, layer.name, system, type_of(layer.shape), nullptr);
  if (target == nullptr) refuse(std::string("layer ") + layer.name);
  for (const Field& field : layer.fields) {
    const OGRFieldDefnH definition = OGR_Fld_Create(field.name, type_of(field.kind));
    const OGRErr error = OGR_L_CreateField(target, definition, TRUE);
    OGR_Fld_Destroy(definition);
    if (error != OGRERR_NONE) refuse(std::string("field ") + field.name);
  }
  for (const Feature& feature : layer.features) {
    const GdalFeature made(OGR_F_Create(OGR_L_GetLayerDefn(target)));
    for (std::size_t i = 0; i < feature.values.size(); ++i) {
      set_value(made.get(), static_cast<int>(i), feature.values[i]);
    }
    if (layer.shape != Shape::none) {
      OGR_F_SetGeometryDirectly(made.get(), geometry_of(layer, feature));
    }
    if (OGR_L_CreateFeature(target, made.get()) != OGRERR_NONE) {
      refuse(std::string("layer ") + layer.name);
    }
  }
}

void write(const std::vector<Layer>& layers, const std::string& path, const std::string& crs) {
  const QuietErrors quiet;
  GDALAllRegister();
  System system;
  if (!crs.empty()) {
    system.reset(OSRNewSpatialReference(nullptr));
    if (OSRSetFromUserInput(system.get(), crs.c_str()) != OGRERR_NONE) {
      refuse("unknown coordinate system '" + crs + "'");
    }
    OSRSetAxisMappingStrategy(system.get(), OAMS_TRADITIONAL_GIS_ORDER);
  }
  const GDALDriverH driver = GDALGetDriverByName("GPKG");
  if (driver == nullptr) throw ExchangeError("this GDAL has no driver for GeoPackage");
  CPLErrorReset();
  Dataset dataset(GDALCreate(driver, path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
  if (dataset == nullptr) refuse();
  if (GDALDatasetStartTransaction(dataset.get(), FALSE) != OGRERR_NONE) refuse();
  for (const Layer& layer : layers) add_layer(dataset.get(), layer, system.get());
  if (GDALDatasetCommitTransaction(dataset.get()) != OGRERR_NONE) refuse();
  CPLErrorReset();
  dataset.reset();
  if (CPLGetLastErrorType() >= CE_Failure) refuse();
}

}  // namespace
}  // namespace vorn::exchange

const vorn::exchange::GeopackageModule vorn_geopackage = {VORN_VERSION, vorn::exchange::write};
