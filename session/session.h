#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "quality/diagnosis.h"
#include "quality/results.h"
#include "quality/tables.h"
#include "settings.h"
#include "text/findings.h"
#include "vorn/session.h"

namespace vorn::session {

// Finding as the C interface shows it; its texts are those of the session.
struct ShownFinding {
  std::string severity;
  std::string code;
  Place place;
  FindingObject object;
  std::string message;
  std::string help;
};

// One project, its settings, and what its last run or check came to. What fails returns an error of
// vorn/session.h and leaves the reason in `error`.
class Session {
 public:
  // `path` in full.
  explicit Session(std::string path) : path_(std::move(path)) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  [[nodiscard]] std::int32_t run();
  [[nodiscard]] std::int32_t check();
  // Whether the observer of a run is being called.
  [[nodiscard]] bool is_running() const { return running_; }
  [[nodiscard]] bool has_results() const { return results_ != nullptr; }

  // Keeps a reason, and returns the status.
  std::int32_t fail(std::int32_t status, std::string reason);

  [[nodiscard]] const std::vector<std::unique_ptr<ResultTable>>& tables() const { return tables_; }
  // Null when there is none of the name.
  [[nodiscard]] const ResultTable* find_table(std::string_view name) const;
  // The texts of a column, made when they are asked for first.
  [[nodiscard]] const std::vector<std::string>& texts(const ResultTable& table, std::size_t column);

  Settings settings;
  vorn_observer observer = nullptr;
  void* user = nullptr;
  std::string error;
  std::string messages;
  std::vector<ShownFinding> findings;

 private:
  class Environment;
  struct Outcome;

  void discard();
  void drop_results();
  RunRequest request(Outcome& outcome);
  [[nodiscard]] std::int32_t run_project_here();
  [[nodiscard]] std::int32_t judge(const Outcome& outcome);
  void take(std::unique_ptr<BundleProject> project, Outcome& outcome);
  void show(const FindingList& list);
  void show(const Diagnosis& diagnosis);

  std::string path_;
  bool running_ = false;
  std::unique_ptr<BundleProject> project_;
  std::unique_ptr<QualityResults> results_;
  std::vector<std::unique_ptr<ResultTable>> tables_;
  std::map<std::pair<const ResultTable*, std::size_t>, std::vector<std::string>> texts_;
};

}  // namespace vorn::session
