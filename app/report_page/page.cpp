#include "app/report_page/page.h"

#include <string_view>

#include "app/report_page/page_template.h"

namespace vorn::app {

std::string ending_of(const QualityResults& results) {
  const std::string iterations = std::to_string(results.iterations.size());
  const std::string_view unit = results.iterations.size() == 1 ? " iteration" : " iterations";
  switch (results.status) {
    case RunStatus::converged:
      return "Converged after " + iterations + std::string(unit);
    case RunStatus::not_converged:
      return "Not converged after " + iterations + std::string(unit);
    default:
      return "Failed: " + results.message;
  }
}

#ifdef VORN_HAS_REPORT_PAGE

std::string can_write_pages(const std::string& file) {
  // Whoever mistakes a data file for the page must not lose it.
  const std::string_view name = file;
  if (name.ends_with(".html") || name.ends_with(".htm")) return {};
  return "the name of a page ends with .html";
}

void write_page(TextWriter& out, const PageInput& input) {
  out << kPageHead;
  write_page_data(out, input);
  out << kPageTail;
}

#else

std::string can_write_pages(const std::string&) {
  return "this command was built without Node.js or RapidJSON and cannot write report pages";
}

void write_page(TextWriter&, const PageInput&) {}

#endif

}  // namespace vorn::app
