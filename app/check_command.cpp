// vorn check: reads a project strictly, without adjusting it, and lists what it finds.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "app/command.h"
#include "app/silent_check.h"
#include "driver/paths.h"
#include "text/text_writer.h"

#ifdef VORN_HAS_JSON
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#endif

namespace vorn::app {
namespace {

void print_text(TextWriter& out, const FindingList& list) {
  for (const Finding& finding : list.findings()) print_finding(out, finding);
  const auto counted = [&out](std::size_t count, std::string_view noun) {
    out << static_cast<std::uint64_t>(count) << ' ' << noun << (count == 1 ? "" : "s");
  };
  counted(list.count(Severity::error), "error");
  out << ", ";
  counted(list.count(Severity::warning), "warning");
  out << ", ";
  counted(list.count(Severity::note), "note");
  out << '\n';
}

#ifdef VORN_HAS_JSON
using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void put(JsonWriter& json, std::string_view key, std::string_view text) {
  if (text.empty()) return;
  json.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
  json.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void put(JsonWriter& json, std::string_view key, std::int32_t number) {
  json.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
  json.Int(number);
}

void put(JsonWriter& json, const Finding& finding) {
  json.StartObject();
  put(json, "severity", name_of(finding.severity()));
  put(json, "code", name_of(finding.code));
  put(json, "file", finding.file);
  if (finding.line > 0) {
    put(json, "line", finding.line);
    put(json, "column", finding.column);
  }
  const FindingObject& object = finding.object;
  if (!object.type.empty()) {
    json.Key("object");
    json.StartObject();
    put(json, "type", object.type);
    put(json, "id", object.id);
    put(json, "image", object.image);
    put(json, "parameter", object.parameter);
    json.EndObject();
  }
  put(json, "message", finding.message);
  put(json, "help", finding.help);
  json.EndObject();
}

void print_json(TextWriter& out, const std::string& project, const FindingList& list) {
  rapidjson::StringBuffer buffer;
  JsonWriter json(buffer);
  json.SetIndent(' ', 2);
  json.StartObject();
  put(json, "format", "vorn-check");
  put(json, "version", 1);
  put(json, "project", project);
  json.Key("counts");
  json.StartObject();
  for (const Severity severity : {Severity::error, Severity::warning, Severity::note}) {
    put(json, name_of(severity), static_cast<std::int32_t>(list.count(severity)));
  }
  json.EndObject();
  json.Key("findings");
  json.StartArray();
  for (const Finding& finding : list.findings()) put(json, finding);
  json.EndArray();
  json.EndObject();
  out << std::string_view(buffer.GetString(), buffer.GetSize()) << '\n';
}
#endif

class CheckCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser.add_option("PROJECT", project_, "control file of the project")->required();
    parser.add_flag("--json", json_, "one JSON document instead of text");
    parser.footer("Exit status: 0 no errors, 1 errors, 2 wrong usage or no control file.");
  }

  ExitStatus run() override {
#ifndef VORN_HAS_JSON
    if (json_) {
      error_output() << "vorn check: this program was built without RapidJSON, which --json "
                        "needs\n";
      return kWrongUsage;
    }
#endif
    FindingList findings;
    if (!check_silently(project_, findings)) {
      error_output() << "vorn check: cannot open the control file: " << printable(project_) << '\n';
      return kWrongUsage;
    }
    print(standard_output(), findings);
    return findings.has_errors() ? kFailed : kSuccess;
  }

 private:
  void print(TextWriter& out, const FindingList& findings) const {
#ifdef VORN_HAS_JSON
    const PathParts parts = split_path(project_);
    const std::size_t name = parts.drive.size() + parts.directory.size();
    if (json_) return print_json(out, printable(project_.substr(name)), findings);
#endif
    print_text(out, findings);
  }

  std::string project_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> make_check_command() { return std::make_unique<CheckCommand>(); }

}  // namespace vorn::app
