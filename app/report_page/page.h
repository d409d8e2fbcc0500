#pragma once

#include <string>
#include <vector>

#include "app/report_page/page_data.h"
#include "quality/results.h"
#include "text/text_writer.h"

namespace vorn::app {

// Empty where this build writes report pages, else a sentence that says what it was built without.
// (Checks an option's value, which it does not look at.)
[[nodiscard]] std::string can_write_pages(const std::string& file);

// How the adjustment ended, in words: "Converged after 4 iterations".
[[nodiscard]] std::string ending_of(const QualityResults& results);

// Writes the page: one HTML file that needs nothing else.
void write_page(TextWriter& out, const PageInput& input);

}  // namespace vorn::app
