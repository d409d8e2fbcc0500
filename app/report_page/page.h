#pragma once

#include <string>
#include <vector>

#include "app/report_page/page_data.h"
#include "quality/results.h"
#include "text/text_writer.h"

namespace vorn::app {

// Empty for the name of a page that this build can write, else a sentence that says what is wrong:
// with the name, or what the command was built without.
[[nodiscard]] std::string can_write_pages(const std::string& file);

// How the adjustment ended, in words: "Converged after 4 iterations".
[[nodiscard]] std::string ending_of(const QualityResults& results);

// Writes the page: one HTML file that needs nothing else.
void write_page(TextWriter& out, const PageInput& input);

}  // namespace vorn::app
