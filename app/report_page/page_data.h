#pragma once

#include <span>
#include <string>

#include "quality/diagnosis.h"
#include "quality/results.h"
#include "report/data_checks.h"
#include "text/findings.h"
#include "text/text_writer.h"

namespace vorn::app {

// What a page shows.
struct PageInput {
  const QualityResults& results;
  const Diagnosis* diagnosis = nullptr;  // null: there is none
  std::string ending;                    // how the adjustment ended, in words
  std::span<const Removal> removed;      // objects that took no part
  std::span<const Finding> checked;      // what is to be said about the files
};

// Writes the document that the script of the page reads, as JSON in which no "<" stands. Its parts
// are described in docs/report-page.md.
void write_page_data(TextWriter& out, const PageInput& input);

}  // namespace vorn::app
