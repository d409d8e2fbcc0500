#include "app/quality_output.h"

#include <cctype>
#include <cstddef>
#include <cstdio>
#include <map>
#include <optional>
#include <string_view>

#include "app/diagnosis_text.h"
#include "app/ending.h"
#include "app/report_page/page.h"
#include "app/silent_check.h"
#include "driver/bundle_project.h"
#include "driver/paths.h"
#include "quality/adjusted_values.h"
#include "quality/diagnosis.h"
#include "quality/missing_names.h"
#include "quality/text_reports.h"
#include "text/file_system.h"
#include "text/keywords.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn::app {
namespace {

const std::map<std::string, TableForm> kTableForms = {
    {"auto", TableForm::by_size}, {"json", TableForm::document}, {"csv", TableForm::files}};

constexpr std::size_t kHeadOfDocument = 4096;  // the status stands in it

// What a network comes to that cannot be adjusted, in a sentence.
std::string failure_of_network(const Diagnosis& diagnosis) {
  if (diagnosis.has_errors()) return diagnosis.findings.front().message;
  return "The iterations failed; at the approximate values the network is sound.";
}

std::string sentence(std::string clause) {
  clause.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(clause.front())));
  return clause + '.';
}

// Whether a document or page of an earlier run is there that speaks of results. A file that says
// nothing of a failure is taken for one.
bool tells_of_results(const std::string& file, std::size_t head = std::string_view::npos) {
  FileText text;
  return text.load(file) &&
         text.view().substr(0, head).find("\"status\": \"failed\"") == std::string_view::npos;
}

template <class Print>
void write_file(OutputFiles& outputs, const std::string& path, Print print) {
  TextWriter& out = outputs.open(path);
  print(out);
  outputs.finish(out);
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
  parser.parse_complete_callback([this] {
    if (datum_file_.empty() || datum_ == "inner") return;
    throw CLI::ValidationError("--datum-points", "the given datum needs no points: --datum inner");
  });
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

ExitStatus QualityOutput::run(ProjectRun& project) {
  if (!attach(project)) return kFailed;
  project.finish = [&](ExitStatus status) { return finish(status, project); };
  return project.run();
}

bool QualityOutput::attach(ProjectRun& run) {
  RunRequest& request = run.request;
  if (!exclusion_file_.empty()) {
    std::string error;
    if (!load_exclusions(exclusion_file_, exclusions_, error)) {
      error_output() << "vorn: " << exclusion_file_ << ": " << error << '\n';
      return false;
    }
    run.more_inputs.push_back(absolute_path(exclusion_file_));
    request.prepare = [this](BundleProject& project, TextWriter& report) {
      tell_missing_observations("vorn: " + exclusion_file_, exclusions_.size(),
                                apply_exclusions(exclusions_, project, report));
    };
  }
  if (!needs_figures() && !json_) return true;
  if (!read_datum()) return false;
  // The run changes the current directory.
  if (!suggestions_.empty()) suggestions_ = absolute_path(suggestions_);
  if (!page_.empty()) {
    page_ = absolute_path(page_);
    // The run says itself when there is no control file.
    static_cast<void>(check_silently(request.path, checked_));
  }
  const PathParts parts = split_path(absolute_path(request.path));
  base_ = parts.drive + parts.directory + parts.base;
  control_file_ = parts.base + (parts.extension.empty() ? "" : '.' + parts.extension);
  if (!datum_file_.empty()) run.more_inputs.push_back(absolute_path(datum_file_));
  run.more_outputs = paths();
  request.write_more = [this](BundleProject& project, OutputFiles& outputs) {
    write(project, outputs);
  };
  request.hear_diagnosis = [this](const Diagnosis& diagnosis) { diagnosis_ = diagnosis; };
  return true;
}

DocumentFiles QualityOutput::document() const {
  return {base_, base_ + (needs_figures() ? ".quality.json" : ".results.json"), table_form_};
}

DocumentFiles QualityOutput::failed_document() const {
  DocumentFiles files = document();
  files.path = base_ + (needs_figures() ? ".failed.quality.json" : ".failed.results.json");
  return files;
}

std::string QualityOutput::failed_page() const {
  const std::size_t dot = page_.rfind('.');
  return page_.substr(0, dot) + ".failed" + page_.substr(dot);
}

std::vector<std::string> QualityOutput::paths() const {
  std::vector<std::string> paths;
  if (json_) {
    paths = paths_of_document(document());
    paths.push_back(failed_document().path);
  }
  if (quality_) paths.insert(paths.end(), {base_ + ".prec", base_ + ".rel"});
  for (const std::string& path : {suggestions_, page_}) {
    if (!path.empty()) paths.push_back(path);
  }
  if (!page_.empty()) paths.push_back(failed_page());
  return paths;
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
  for (std::string id; in.read_word(id) && id != kEndWord;) {
    quality_request_.datum_points.push_back(id);
  }
  if (!quality_request_.datum_points.empty()) return true;
  error_output() << "vorn: " << datum_file_ << ": it names no point\n";
  return false;
}

void QualityOutput::write(BundleProject& project, OutputFiles& outputs) {
  tell_missing_points("vorn: " + datum_file_, quality_request_.datum_points, project);
  std::optional<Diagnosis> diagnosis;
  if (is_doubtful(project)) diagnosis = diagnose_completed(project);
  if (diagnosis && !diagnosis->condemns_results()) diagnosis.reset();
  // Damped steps reach a minimum of a singular network, too; only its quality is undefined.
  const bool condemned = diagnosis && (needs_figures() || !project.settings.damped);
  quality_request_.figures = needs_figures() && !condemned;
  QualityResults results = find_quality(project, quality_request_, diagnosis);
  results.control_file = control_file_;
  if (condemned) {
    results.status = RunStatus::failed;
    results.message = failure_of_network(*diagnosis);
  }
  lacks_figures_ = needs_figures() && !results.has_figures;
  if (lacks_figures_) {
    error_output() << "vorn: there are no figures of quality. " << results.message << '\n';
  } else if (results.has_figures && diagnosis->has_errors()) {
    error_output() << "vorn: figures of quality are worth nothing where this concerns them:\n";
    print_errors(error_output(), *diagnosis);
  }
  const Diagnosis* const found = diagnosis ? &*diagnosis : nullptr;
  if (quality_) write_texts(results, *diagnosis, outputs);
  if (!page_.empty()) write_page_of(results, found, project.removed_objects, page_, outputs);
  if (json_) write_quality_document(results, found, document(), outputs);
}

void QualityOutput::write_texts(const QualityResults& results, const Diagnosis& diagnosis,
                                OutputFiles& outputs) const {
  if (!results.has_figures) {
    // Files of an earlier run would contradict the results that are there now.
    for (const char* const extension : {".prec", ".rel"}) {
      write_file(outputs, base_ + extension, [&](TextWriter& out) {
        out << "There are no figures of quality. " << results.message << "\n\n";
        print_findings(out, diagnosis);
      });
    }
    return;
  }
  write_file(outputs, base_ + ".prec", [&](TextWriter& out) { print_precision(out, results); });
  write_file(outputs, base_ + ".rel", [&](TextWriter& out) { print_reliability(out, results); });
  if (suggestions_.empty()) return;
  write_file(outputs, suggestions_,
             [&](TextWriter& out) { write_suggested_exclusions(out, results); });
}

void QualityOutput::write_page_of(const QualityResults& results, const Diagnosis* diagnosis,
                                  const std::vector<Removal>& removed, const std::string& file,
                                  OutputFiles& outputs) const {
  const std::vector<Finding> checked = checked_.findings();
  const PageInput input{results, diagnosis, ending_of(results), removed, checked};
  write_file(outputs, file, [&](TextWriter& out) { write_page(out, input); });
}

ExitStatus QualityOutput::finish(ExitStatus status, const ProjectRun& run) {
  if (!tell_failure(run)) return kFailed;
  return status == kSuccess && lacks_figures_ ? kNotConverged : status;
}

// What a failed run comes to, in a sentence.
std::string QualityOutput::failure_of(const RunSummary& summary) const {
  if (diagnosis_) return failure_of_network(*diagnosis_);
  const RunEnding& ending = summary.ending;
  if (ending.non_finite.iteration != 0) return sentence(in_words(ending.non_finite));
  if (!ending.lost.empty()) return sentence(in_words(ending.lost.front()));
  for (const Finding& found : checked_.findings()) {
    if (found.severity() != Severity::error) continue;
    return found.file + (found.line > 0 ? ':' + std::to_string(found.line) : "") + ": " +
           found.message + '.';
  }
  return "The run failed before it had normal equations; its report says why.";
}

// Results of an earlier run stay, and then so do their document and page; what tells of this
// failure stands beside them until a run succeeds, like the report of a failed run.
bool QualityOutput::tell_failure(const ProjectRun& run) const {
  const RunSummary& summary = run.summary;
  const std::string document_beside = failed_document().path;
  const std::string page_beside = page_.empty() ? std::string() : failed_page();
  if (!json_ && page_.empty()) return true;
  if (summary.result == 1) {
    if (!summary.failures.empty()) return true;
    if (json_) std::remove(document_beside.c_str());
    if (!page_.empty()) std::remove(page_beside.c_str());
    return true;
  }
  if (!summary.started || summary.stopped || !summary.failures.empty()) return true;
  QualityResults results;
  results.control_file = control_file_;
  results.settings = settings_of_run(run.request.settings.rigorous);
  results.message = failure_of(summary);
  const Diagnosis* const diagnosis = diagnosis_ ? &*diagnosis_ : nullptr;
  OutputFiles outputs(OutputMode::replaced);
  if (json_) {
    const bool keep = tells_of_results(document().path, kHeadOfDocument);
    write_quality_document(results, diagnosis, keep ? failed_document() : document(), outputs);
  }
  std::string page;
  if (!page_.empty()) {
    page = tells_of_results(page_) ? page_beside : page_;
    write_page_of(results, diagnosis, summary.ending.removals, page, outputs);
  }
  if (outputs.commit()) {
    if (!page.empty()) error_output() << "vorn: the page says what went wrong: " << page << '\n';
    return true;
  }
  for (const OutputFailure& failure : outputs.failures()) {
    error_output() << "vorn: not complete: " << failure.path << ": " << failure.reason << '\n';
  }
  return false;
}

}  // namespace vorn::app
