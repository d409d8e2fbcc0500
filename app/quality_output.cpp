#include "app/quality_output.h"

#include <map>
#include <optional>

#include "app/report_page/page.h"
#include "driver/paths.h"
#include "quality/diagnosis.h"
#include "quality/result_findings.h"
#include "quality/text_reports.h"
#include "text/file_system.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn::app {
namespace {

const std::map<std::string, TableForm> kTableForms = {
    {"auto", TableForm::by_size}, {"json", TableForm::document}, {"csv", TableForm::files}};

// What a failed run comes to, in a sentence.
std::string failure_of(const Diagnosis& diagnosis) {
  if (diagnosis.has_errors()) return diagnosis.findings.front().message;
  return "The iterations failed; at the approximate values the network is sound.";
}

}  // namespace

void QualityOutput::define(CLI::App& parser) {
  parser.add_flag("--quality", quality_,
                  "also write precision (.prec) and reliability (.rel) of the results");
  parser
      .add_flag("--prior", quality_request_.prior,
                "standard deviations of --quality from sigma 0 a priori")
      ->needs(parser.get_option("--quality"));
  parser
      .add_option("--datum", datum_,
                  "datum of the standard deviations: as given, or inner (of the free network)")
      ->check(CLI::IsMember({"given", "inner"}))
      ->needs(parser.get_option("--quality"));
  parser
      .add_option("--datum-points", datum_file_,
                  "file of the points over which the inner datum is formed, default all")
      ->needs(parser.get_option("--datum"));
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
  if (!needs_figures() && !json_) return true;
  if (!read_datum()) return false;
  // The run changes the current directory.
  if (!suggestions_.empty()) suggestions_ = absolute_path(suggestions_);
  if (!page_.empty()) page_ = absolute_path(page_);
  const PathParts parts = split_path(absolute_path(request.path));
  base_ = parts.drive + parts.directory + parts.base;
  control_file_ = parts.base + (parts.extension.empty() ? "" : '.' + parts.extension);
  request.inspect = [this](BundleProject& project) { write(project); };
  request.hear_diagnosis = [this](const Diagnosis& diagnosis) {
    write_failure(failure_of(diagnosis), &diagnosis);
  };
  return true;
}

bool QualityOutput::read_datum() {
  quality_request_.inner_datum = datum_ == "inner";
  if (datum_file_.empty()) return true;
  FileText text;
  if (!text.load(datum_file_)) {
    error_output() << "vorn: " << datum_file_ << ": it cannot be read\n";
    return false;
  }
  TokenReader in(text.view());
  for (std::string id; in.read_word(id) && id != "stop-dep";) {
    quality_request_.datum_points.push_back(id);
  }
  return true;
}

template <class Print>
void QualityOutput::write_text(const std::string& path, Print print) {
  TextWriter out;
  if (out.open(path)) print(out);
  out.close();
  if (out.error() != 0) failures_.push_back(path);
}

void QualityOutput::write(BundleProject& project) {
  quality_request_.figures = needs_figures();
  QualityResults results = find_quality(project, quality_request_);
  results.control_file = control_file_;
  std::optional<Diagnosis> diagnosis;
  if (needs_figures()) diagnosis = diagnose(project);
  if (results.has_figures) {
    add_result_findings(results, *diagnosis);
    if (quality_) write_texts(results);
  } else if (needs_figures()) {
    error_output() << "vorn: there are no figures of quality. " << results.message << '\n';
  }
  const Diagnosis* const found = diagnosis ? &*diagnosis : nullptr;
  write_document(results, found);
  if (!page_.empty()) {
    const PageInput input{results, found, ending_of(results), {}, {}};
    write_text(page_, [&](TextWriter& out) { write_page(out, input); });
  }
}

void QualityOutput::write_texts(const QualityResults& results) {
  write_text(base_ + ".prec", [&](TextWriter& out) { print_precision(out, results); });
  write_text(base_ + ".rel", [&](TextWriter& out) { print_reliability(out, results); });
  if (suggestions_.empty()) return;
  write_text(suggestions_, [&](TextWriter& out) { write_suggested_exclusions(out, results); });
}

void QualityOutput::write_document(const QualityResults& results, const Diagnosis* diagnosis) {
  if (!json_) return;
  has_document_ = true;
  const std::string path = base_ + (needs_figures() ? ".quality.json" : ".results.json");
  for (std::string& file : write_quality_document(results, diagnosis, {base_, path, table_form_})) {
    failures_.push_back(std::move(file));
  }
}

void QualityOutput::write_failure(const std::string& message, const Diagnosis* diagnosis) {
  QualityResults results;
  results.control_file = control_file_;
  results.message = message;
  write_document(results, diagnosis);
}

bool QualityOutput::finish(bool completed) {
  if (json_ && !completed && !has_document_) {
    write_failure("The run failed before it had normal equations; its report says why.", nullptr);
  }
  for (const std::string& file : failures_) {
    error_output() << "vorn: cannot write " << file << '\n';
  }
  return failures_.empty();
}

}  // namespace vorn::app
