#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "quality/diagnosis.h"
#include "quality/results.h"
#include "text/text_writer.h"

namespace vorn::app {

// One row of a table of objects that took no part, or of findings.
struct PageRemark {
  std::string object;
  std::string text;
};

// What a page shows.
struct PageInput {
  const QualityResults& results;
  const Diagnosis* diagnosis = nullptr;  // null: there is none
  std::string ending;                    // how the adjustment ended, in words
  std::vector<PageRemark> removed;
  std::vector<PageRemark> findings;
};

// Writes the document that the script of the page reads, as JSON in which no "<" stands. Its parts
// are described in docs/report-page.md.
void write_page_data(TextWriter& out, const PageInput& input);

}  // namespace vorn::app
