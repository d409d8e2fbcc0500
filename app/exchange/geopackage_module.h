#pragma once

#include <string>
#include <vector>

#include "app/exchange/feature_layer.h"

// What GDAL does for us stands in a module that is loaded when a GeoPackage is asked for: GDAL
// brings more than a hundred libraries, and every start of a program would wait for them.

namespace vorn::exchange {

struct GeopackageModule {
  // First, so that a program finds it in the module of another version, which it refuses.
  const char* version;
  // Writes a new file. Throws ExchangeError with what went wrong; the file is not named in it.
  void (*write)(const std::vector<Layer>& layers, const std::string& path, const std::string& crs);
};

// By this name the module exports what it offers.
constexpr char kGeopackageSymbol[] = "vorn_geopackage";

}  // namespace vorn::exchange

extern "C" const vorn::exchange::GeopackageModule vorn_geopackage;
