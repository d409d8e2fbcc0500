#include "app/quality_output.h"

#include <map>

#include "app/report_page/page.h"
#include "driver/paths.h"
#include "quality/text_reports.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

const std::map<std::string, TableForm> kTableForms = {
    {"auto", TableForm::by_size}, {"json", TableForm::document}, {"csv", TableForm::files}};

}  // namespace

void QualityOutput::define(CLI::App& parser) {
  parser.add_flag("--quality", quality_,
                  "also write precision (.prec) and reliability (.rel) of the results");
  parser
      .add_flag("--prior", quality_request_.prior,
                "standard deviations of --quality from sigma 0 a priori")
      ->needs(parser.get_option("--quality"));
  parser
      .add_option("--suggest", suggestions_,
                  "write a list of observations that --exclude could leave out")
      ->needs(parser.get_option("--quality"));
  parser.add_option("--exclude", exclusion_file_, "leave out the observations of a list");
  parser.add_flag_callback(
      "--json",
      [this] {
        if (!has_json()) {
          throw CLI::ValidationError(
              "--json", "this command was built without RapidJSON and cannot write it");
        }
        json_ = true;
      },
      "also write the results as JSON: .quality.json with --quality, else .results.json");
  parser
      .add_option("--tables", table_form_,
                  "tables of --json in the document (json), in files (csv), or large ones in files "
                  "(auto)")
      ->transform(CLI::CheckedTransformer(kTableForms).description("{auto,csv,json}"))
      ->needs(parser.get_option("--json"));
  parser.add_option("--html", page_, "also write a page with charts and tables of everything")
      ->type_name("FILE")
      ->check(can_write_pages);
}

void QualityOutput::ask_for_page(std::string file) { page_ = std::move(file); }

bool QualityOutput::attach(RunRequest& request) {
  if (!exclusion_file_.empty()) {
    FileText text;
    std::string error = "it cannot be read";
    if (!text.load(exclusion_file_) || !read_exclusions(text.view(), exclusions_, error)) {
      error_output() << "vorn: " << exclusion_file_ << ": " << error << '\n';
      return false;
    }
    request.prepare = [this](BundleProject& project, TextWriter& report) {
      apply_exclusions(exclusions_, project, report);
    };
  }
  if (quality_ || json_ || !page_.empty()) {
    // The run changes the current directory.
    if (!suggestions_.empty()) suggestions_ = absolute_path(suggestions_);
    if (!page_.empty()) page_ = absolute_path(page_);
    request.inspect = [this, path = request.path](BundleProject& project) { write(project, path); };
  }
  return true;
}

template <class Print>
void QualityOutput::write_text(const std::string& path, Print print) {
  TextWriter out;
  if (!out.open(path)) {
    failures_.push_back(path);
    return;
  }
  print(out);
  out.close();
}

void QualityOutput::write(BundleProject& project, const std::string& control_file) {
  const PathParts parts = split_path(control_file);
  quality_request_.figures = quality_ || !page_.empty();
  QualityResults results = find_quality(project, quality_request_);
  results.control_file = parts.base + (parts.extension.empty() ? "" : '.' + parts.extension);
  const std::string base = parts.base;
  if (quality_ && results.has_figures) {
    write_text(base + ".prec", [&](TextWriter& out) { print_precision(out, results); });
    write_text(base + ".rel", [&](TextWriter& out) { print_reliability(out, results); });
  }
  if (results.has_figures && !suggestions_.empty()) {
    write_text(suggestions_, [&](TextWriter& out) { write_suggested_exclusions(out, results); });
  }
  if (json_) {
    for (std::string& file : write_quality_document(results, nullptr, base, table_form_)) {
      failures_.push_back(std::move(file));
    }
  }
  if (!page_.empty()) {
    const PageInput input{results, nullptr, ending_of(results), {}, {}};
    write_text(page_, [&](TextWriter& out) { write_page(out, input); });
  }
}

bool QualityOutput::report_failures() const {
  for (const std::string& file : failures_) {
    error_output() << "vorn: cannot write " << file << '\n';
  }
  return failures_.empty();
}

}  // namespace vorn::app
