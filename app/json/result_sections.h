#pragma once

#include "quality/results.h"

// Sections of results that the quality document and the report page have in common: one member
// each of the object that is being written.

namespace vorn::app {

class JsonWriter;

// "object_type", "object_id" and "parameter" of an unknown.
void write_item(JsonWriter& json, const Unknown& unknown);

void write_settings(JsonWriter& json, const QualityResults& results);
void write_statistics(JsonWriter& json, const QualityResults& results);
void write_iterations(JsonWriter& json, const QualityResults& results);
void write_groups(JsonWriter& json, const QualityResults& results);

}  // namespace vorn::app
