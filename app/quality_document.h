#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quality/diagnosis.h"
#include "quality/results.h"

namespace vorn::app {

// Where the tables of a document stand.
enum class TableForm : std::uint8_t {
  by_size,   // large ones in files
  document,  // all of them in the document
  files,     // each in a file of its own
};

// Whether this build writes JSON.
[[nodiscard]] bool has_json();

// Writes results as `<base>.quality.json`, or `<base>.results.json` without figures of quality, and
// tables that stand in files of their own as `<base>.<table>.csv`. `diagnosis` may be null. Returns
// the names of the files that could not be written.
[[nodiscard]] std::vector<std::string> write_quality_document(const QualityResults& results,
                                                              const Diagnosis* diagnosis,
                                                              const std::string& base,
                                                              TableForm form);

}  // namespace vorn::app
