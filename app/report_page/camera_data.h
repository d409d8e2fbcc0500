#pragma once

#include "app/json/json_stream.h"
#include "quality/results.h"

namespace vorn::app {

// Writes the member "cameras": for each camera with images its adjusted values, correlations,
// residuals over the format, distortion and the distribution of w.
void write_cameras(JsonWriter& json, const QualityResults& results);

}  // namespace vorn::app
