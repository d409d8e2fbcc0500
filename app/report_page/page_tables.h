#pragma once

#include "app/json/json_stream.h"
#include "app/report_page/page_data.h"

namespace vorn::app {

// Writes the member "tables": worst residuals, images, points, control, checks, removed objects and
// findings.
void write_tables(JsonWriter& json, const PageInput& input);

}  // namespace vorn::app
