#pragma once

#include <string_view>

#include "quality/results.h"

// Sections of results that the quality document and the report page have in common: members of the
// object that is being written.

namespace vorn::app {

class JsonWriter;

// "format", "format_version", "program" and "project".
void write_document_head(JsonWriter& json, std::string_view format, const QualityResults& results);

// "object_type", "object_id" and "parameter" of an unknown.
void write_item(JsonWriter& json, const Unknown& unknown);

void write_settings(JsonWriter& json, const QualityResults& results);
void write_statistics(JsonWriter& json, const QualityResults& results);
void write_iterations(JsonWriter& json, const QualityResults& results);
void write_groups(JsonWriter& json, const QualityResults& results);

}  // namespace vorn::app
