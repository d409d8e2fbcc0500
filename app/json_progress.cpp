#include "app/json_progress.h"

#ifdef VORN_HAS_JSON
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>

#include "app/signals.h"
#include "text/findings.h"
#include "text/text_writer.h"

namespace vorn::app {

#ifdef VORN_HAS_JSON
namespace {

constexpr char kInterruptedLine[] = "{\"event\":\"end\",\"status\":\"interrupted\"}\n";

std::string_view ending_word(ExitStatus status) {
  switch (status) {
    case kSuccess:
      return "converged";
    case kNotConverged:
      return "not_converged";
    case kInterrupted:
      return "interrupted";
    default:
      return "failed";
  }
}

// One object on a line of its own.
class JsonLine {
 public:
  explicit JsonLine(std::string_view event) : writer_(buffer_) {
    writer_.StartObject();
    put("event", event);
  }

  JsonLine& put(std::string_view key, std::string_view text) {
    name(key);
    string(text);
    return *this;
  }
  JsonLine& put(std::string_view key, std::int32_t value) {
    name(key);
    writer_.Int(value);
    return *this;
  }
  JsonLine& put(std::string_view key, bool value) {
    name(key);
    writer_.Bool(value);
    return *this;
  }
  // The shortest text that reads back to the same number; null for what is not finite.
  JsonLine& put(std::string_view key, double value) {
    name(key);
    char text[32];
    const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
    if (std::isfinite(value)) {
      writer_.RawValue(text, static_cast<std::size_t>(end - text), rapidjson::kNumberType);
    } else {
      writer_.Null();
    }
    return *this;
  }
  JsonLine& put(std::string_view key, const NamedParameter& parameter) {
    name(key);
    writer_.StartObject();
    put("type", parameter.kind).put("id", parameter.id).put("parameter", parameter.name);
    writer_.EndObject();
    return *this;
  }
  JsonLine& put(std::string_view key, const std::vector<std::string>& texts) {
    name(key);
    writer_.StartArray();
    for (const std::string& text : texts) string(text);
    writer_.EndArray();
    return *this;
  }
  void write(TextWriter& out) {
    writer_.EndObject();
    out << std::string_view(buffer_.GetString(), buffer_.GetSize()) << '\n';
    out.flush();
  }

 private:
  void name(std::string_view key) {
    writer_.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
  }
  // Data files may hold bytes that are no UTF-8.
  void string(std::string_view text) {
    const std::string shown = printable(text);
    writer_.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
  }

  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_;
};

class JsonView final : public ProgressView {
 public:
  JsonView() : out_(stderr) {
    error_output().capture(&messages_);
    set_last_message(kInterruptedLine);
  }
  ~JsonView() override {
    error_output().capture(nullptr);
    tell_messages();
    set_last_message(nullptr);
  }
  void show_stage(RunStage stage) override {
    tell_messages();
    JsonLine("stage").put("stage", name_of(stage)).write(out_);
  }
  void show_progress(RunStage stage, double fraction) override {
    tell_messages();
    JsonLine("progress").put("stage", name_of(stage)).put("fraction", fraction).write(out_);
  }
  void show_iteration(const IterationStatistics& statistics) override {
    tell_messages();
    const bool converged = statistics.open_object == nullptr;
    JsonLine line("iteration");
    line.put("iteration", statistics.number)
        .put("sigma0", statistics.sigma0)
        .put("vtpv", statistics.vtpv)
        .put("redundancy", statistics.counts.value())
        .put("seconds", statistics.cpu_seconds)
        .put("converged", converged);
    if (!converged) line.put("moves", open_parameter(statistics));
    line.write(out_);
  }
  void show_ending(const RunSummary& summary, const std::vector<std::string>& files,
                   ExitStatus status) override {
    tell_messages();
    JsonLine line("end");
    line.put("status", ending_word(status)).put("exit_status", static_cast<std::int32_t>(status));
    line.put("iterations", summary.iterations);
    if (summary.result == 1 && summary.failures.empty()) {
      line.put("sigma0", summary.sigma0).put("redundancy", summary.redundancy);
      line.put("files", files);
    } else if (summary.started) {
      line.put("report", summary.files.failed);
    }
    line.write(out_);
  }

 private:
  // What was printed since the last event, line by line.
  void tell_messages() {
    standard_output().flush();
    error_output().flush();
    std::string_view rest = messages_;
    while (!rest.empty()) {
      const std::size_t end = rest.find('\n');
      const std::string_view line = rest.substr(0, end);
      if (!line.empty()) JsonLine("message").put("text", line).write(out_);
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    messages_.clear();
  }

  TextWriter out_;
  std::string messages_;
};

}  // namespace

std::unique_ptr<ProgressView> make_json_progress() { return std::make_unique<JsonView>(); }
#else
std::unique_ptr<ProgressView> make_json_progress() { return nullptr; }
#endif

}  // namespace vorn::app
