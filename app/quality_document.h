#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quality/diagnosis.h"
#include "quality/results.h"
#include "text/output_files.h"
#include "text/text_writer.h"

namespace vorn::app {

// Where the tables of a document stand.
enum class TableForm : std::uint8_t {
  by_size,   // large ones in files
  document,  // all of them in the document
  files,     // each in a file of its own
};

// Whether this build writes JSON.
[[nodiscard]] bool has_json();

// The files of a document.
struct DocumentFiles {
  std::string base;  // tables in files of their own are <base>.<table>.csv
  std::string path;  // of the document
  TableForm form = TableForm::by_size;
};

// The files that a document of this form may consist of.
[[nodiscard]] std::vector<std::string> paths_of_document(const DocumentFiles& files);

// Writes the document. `diagnosis` may be null. Of a failed run without values it says status,
// message and diagnosis.
void write_quality_document(const QualityResults& results, const Diagnosis* diagnosis,
                            const DocumentFiles& files, OutputFiles& outputs);
// The document without its tables, for those who take them from memory.
void print_quality_summary(TextWriter& out, const QualityResults& results,
                           const Diagnosis* diagnosis);

}  // namespace vorn::app
