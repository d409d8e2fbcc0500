// The quality document: results as JSON, large tables as CSV (RFC 4180) beside it.

#include "app/quality_document.h"

#ifdef VORN_HAS_JSON

#include <algorithm>
#include <memory>
#include <string_view>

#include "app/json/json_stream.h"
#include "app/json/result_sections.h"
#include "driver/paths.h"
#include "quality/tables.h"
#include "text/csv_field.h"
#include "text/unicode.h"

namespace vorn::app {
namespace {

constexpr std::size_t kLargeTable = 100000;  // rows

// ---- tables -------------------------------------------------------------------------------------

class JsonCells final : public CellSink {
 public:
  explicit JsonCells(JsonWriter& json) : json_(json) {}
  void number(double value) override { json_.number(value); }
  void short_number(double value) override { json_.short_number(value); }
  void count(std::int64_t value) override { json_.integer(value); }
  void flag(bool value) override { json_.flag(value); }
  void text(std::string_view value) override { json_.text(value); }
  void undefined() override { json_.null(); }

 private:
  JsonWriter& json_;
};

class CsvCells final : public CellSink {
 public:
  explicit CsvCells(TextWriter& out) : out_(out) {}
  void number(double value) override {
    if (!std::isfinite(value)) return;
    char digits[32];
    put(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }
  void short_number(double value) override {
    if (std::isfinite(value)) out_ << general(0, 9)(value);
  }
  void count(std::int64_t value) override { out_ << value; }
  void flag(bool value) override { out_ << (value ? "true" : "false"); }
  void text(std::string_view value) override {
    const std::string utf8 = is_utf8(value) ? std::string() : to_utf8(value);
    write_csv_field(out_, utf8.empty() ? value : utf8);
  }
  void undefined() override {}

 private:
  void put(const char* begin, const char* end) {
    out_ << std::string_view(begin, static_cast<std::size_t>(end - begin));
  }
  TextWriter& out_;
};

void write_csv(const ResultTable& table, TextWriter& out) {
  std::string_view separator;
  for (const ResultTable::Column& column : table.columns) {
    out << separator << column.name;
    separator = ",";
  }
  out << '\n';
  CsvCells cells(out);
  for (std::size_t row = 0; row < table.num_rows(); ++row) {
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      if (column > 0) out << ',';
      table.put(row, column, cells);
    }
    out << '\n';
  }
}

void write_columns(JsonWriter& json, const ResultTable& table) {
  JsonCells cells(json);
  json.begin_object();
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    json.key(table.columns[column].name).begin_array();
    for (std::size_t row = 0; row < table.num_rows(); ++row) table.put(row, column, cells);
    json.end_array();
  }
  json.end_object();
}

// ---- sections in front of the tables ------------------------------------------------------------

void write_ap_correlation(JsonWriter& json, const APCorrelation& correlation) {
  json.key("ap_correlation");
  const std::size_t n = correlation.parameters.size();
  if (n == 0) return json.null();
  json.begin_object();
  json.key("object_id").begin_array();
  for (const Unknown& unknown : correlation.parameters) json.text(unknown.object->id);
  json.end_array();
  json.key("parameter").begin_array();
  for (const Unknown& unknown : correlation.parameters) json.text(parameter_name(unknown));
  json.end_array();
  json.key("r").begin_array();
  for (std::size_t i = 0; i < n; ++i) {
    json.begin_array();
    for (std::size_t j = 0; j < n; ++j) json.number(correlation.r[i * n + j]);
    json.end_array();
  }
  json.end_array();
  json.end_object();
}

// ---- diagnosis ----------------------------------------------------------------------------------

void write_name(JsonWriter& json, const DiagnosedItem& item) {
  json.key("object_type").text(item.object_type);
  json.key("object_id").text(item.object_id);
  json.key("parameter");
  item.parameter.empty() ? json.null() : json.text(item.parameter);
}

void write_vector(JsonWriter& json, std::string_view key, const Vec3& vector, bool is_there) {
  json.key(key);
  if (!is_there) return json.null();
  json.begin_array();
  for (const double component : vector) json.number(component);
  json.end_array();
}

void write_component(JsonWriter& json, const NetworkComponent& component) {
  json.begin_object();
  json.key("component").integer(component.component);
  json.key("images").integer(component.images);
  json.key("points").integer(component.points);
  json.key("control_points").integer(component.control_points);
  json.key("defect").integer(component.defect);
  json.key("quotients").begin_array();
  for (const double quotient : component.quotients) json.number(quotient);
  json.end_array();
  json.key("motions").begin_array();
  for (const FreeMotion& motion : component.motions) {
    json.begin_object();
    json.key("kind").text(motion_kind_name(motion.kind));
    write_vector(json, "axis", motion.axis, motion.has_axis());
    write_vector(json, "through", motion.through, motion.has_place());
    json.end_object();
  }
  json.end_array();
  json.key("basic").begin_object();
  for (std::size_t k = 0; k < kNumMotions; ++k) {
    json.key(kMotionNames[k]).begin_object();
    json.key("quotient").number(component.basic[k].quotient);
    json.key("held_by").begin_object();
    for (const auto& [group, share] : component.basic[k].held_by) json.key(group).number(share);
    json.end_object();
    json.end_object();
  }
  json.end_object();
  json.end_object();
}

void write_values(JsonWriter& json, std::string_view key, const std::vector<DiagnosedValue>& rows) {
  json.key(key).begin_array();
  for (const DiagnosedValue& row : rows) {
    json.begin_object();
    write_name(json, row.unknown);
    json.key("value").number(row.value);
    json.end_object();
  }
  json.end_array();
}

void write_eigenvalues(JsonWriter& json, const Diagnosis& diagnosis) {
  json.key("smallest_eigenvalues").begin_array();
  for (const DiagnosedEigenvalue& row : diagnosis.smallest_eigenvalues) {
    json.begin_object();
    json.key("value").number(row.value);
    json.key("parts").begin_array();
    for (const auto& [item, share] : row.parts) {
      json.begin_object();
      write_name(json, item);
      json.key("share").number(share);
      json.end_object();
    }
    json.end_array();
    json.end_object();
  }
  json.end_array();
}

void write_finding(JsonWriter& json, const DiagnosisFinding& finding) {
  json.begin_object();
  json.key("code").text(finding.code);
  json.key("severity").text(severity_name(finding.severity));
  json.key("component");
  finding.component > 0 ? json.integer(finding.component) : json.null();
  json.key("defect");
  finding.defect >= 0 ? json.integer(finding.defect) : json.null();
  json.key("objects").begin_array();
  for (const DiagnosedItem& item : finding.objects) {
    json.begin_object();
    write_name(json, item);
    json.end_object();
  }
  json.end_array();
  json.key("message").text(finding.message);
  json.key("remedy").text(finding.remedy);
  json.key("values").begin_object();
  for (const auto& [name, value] : finding.values) json.key(name).number(value);
  json.end_object();
  json.end_object();
}

void write_diagnosis(JsonWriter& json, const Diagnosis* diagnosis) {
  json.key("diagnosis");
  if (diagnosis == nullptr) return json.null();
  json.begin_object();
  json.key("components").begin_array();
  for (const NetworkComponent& component : diagnosis->components) write_component(json, component);
  json.end_array();
  write_values(json, "smallest_tolerances", diagnosis->smallest_tolerances);
  write_values(json, "smallest_pivots", diagnosis->smallest_pivots);
  if (diagnosis->has_eigenvalues) write_eigenvalues(json, *diagnosis);
  json.key("failed_at");
  if (diagnosis->failed_at.object_type.empty()) {
    json.null();
  } else {
    json.begin_object();
    write_name(json, diagnosis->failed_at);
    json.end_object();
  }
  json.key("findings").begin_array();
  for (const DiagnosisFinding& finding : diagnosis->findings) write_finding(json, finding);
  json.end_array();
  json.end_object();
}

// ---- the document -------------------------------------------------------------------------------

void write_head(JsonWriter& json, const QualityResults& results) {
  write_document_head(json, "vorn-quality", results);
  if (results.status == RunStatus::failed) json.key("message").text(results.message);
}

void write_tables(JsonWriter& json, const std::vector<std::unique_ptr<ResultTable>>& tables,
                  const std::vector<std::string>& files) {
  json.key("tables").begin_object();
  for (std::size_t k = 0; k < tables.size(); ++k) {
    json.key(tables[k]->name);
    if (files[k].empty()) {
      write_columns(json, *tables[k]);
      continue;
    }
    json.begin_object();
    json.key("file").text(files[k]);
    json.key("rows").integer(static_cast<std::int64_t>(tables[k]->num_rows()));
    json.end_object();
  }
  json.end_object();
  json.key("columns").begin_object();
  for (const auto& table : tables) {
    json.key(table->name).begin_object();
    for (const ResultTable::Column& column : table->columns) {
      json.key(column.name).text(column.unit);
    }
    json.end_object();
  }
  json.end_object();
}

// Everything in front of the tables.
void write_summary(JsonWriter& json, const QualityResults& results, const Diagnosis* diagnosis) {
  write_head(json, results);
  if (!results.images.empty()) {
    write_settings(json, results);
    write_statistics(json, results);
    write_iterations(json, results);
  }
  if (results.has_figures) {
    write_groups(json, results);
    write_ap_correlation(json, results.ap_correlation);
  }
  write_diagnosis(json, diagnosis);
}

bool stands_in_file(const ResultTable& table, TableForm form) {
  return form == TableForm::files || (form == TableForm::by_size && table.num_rows() > kLargeTable);
}

std::string path_of_table(const ResultTable& table, const DocumentFiles& files) {
  return files.base + '.' + std::string(table.name) + ".csv";
}

}  // namespace

bool has_json() { return true; }

std::vector<std::string> paths_of_document(const DocumentFiles& files) {
  std::vector<std::string> paths = {files.path};
  if (files.form == TableForm::document) return paths;
  QualityResults all;
  all.has_figures = true;
  for (const auto& table : tables_of(all)) paths.push_back(path_of_table(*table, files));
  return paths;
}

void write_quality_document(const QualityResults& results, const Diagnosis* diagnosis,
                            const DocumentFiles& files, OutputFiles& outputs) {
  const bool has_values = !results.images.empty();
  const std::vector<std::unique_ptr<ResultTable>> tables = tables_of(results);
  std::vector<std::string> table_files;
  for (const auto& table : tables) {
    std::string& file = table_files.emplace_back();
    if (!stands_in_file(*table, files.form) || !has_values) continue;
    const std::string path = path_of_table(*table, files);
    const PathParts parts = split_path(path);
    file = parts.base + '.' + parts.extension;
    TextWriter& out = outputs.open(path);
    write_csv(*table, out);
    outputs.finish(out);
  }
  TextWriter& out = outputs.open(files.path);
  {
    JsonWriter json(out);
    json.begin_object();
    write_summary(json, results, diagnosis);
    if (has_values) write_tables(json, tables, table_files);
    json.end_object();
  }
  out << '\n';
  outputs.finish(out);
}

void print_quality_summary(TextWriter& out, const QualityResults& results,
                           const Diagnosis* diagnosis) {
  JsonWriter json(out);
  json.begin_object();
  write_summary(json, results, diagnosis);
  json.end_object();
}

}  // namespace vorn::app

#else

namespace vorn::app {

bool has_json() { return false; }

std::vector<std::string> paths_of_document(const DocumentFiles&) { return {}; }

void write_quality_document(const QualityResults&, const Diagnosis*, const DocumentFiles&,
                            OutputFiles&) {}

void print_quality_summary(TextWriter&, const QualityResults&, const Diagnosis*) {}

}  // namespace vorn::app

#endif
