// The functions of vorn/session.h: what they refuse, and that no exception leaves them.

#include <cmath>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <string_view>

#include "driver/paths.h"
#include "session.h"
#include "text/file_system.h"

struct vorn_session final : vorn::session::Session {
  using Session::Session;
};

namespace vorn::session {
namespace {

constexpr std::size_t kMaxReason = 512;
// Why the last function of the thread failed that had no session.
thread_local char reason_without_session[kMaxReason] = "";

std::int32_t refuse(std::int32_t status, std::string_view reason) {
  std::snprintf(reason_without_session, kMaxReason, "%.*s", static_cast<int>(reason.size()),
                reason.data());
  return status;
}

// Keeps a reason that takes no memory worth mentioning.
std::int32_t note(Session& session, std::int32_t status, const char* reason) noexcept {
  try {
    session.error = reason;
  } catch (...) {
    session.error.clear();
  }
  return status;
}

// Calls `action(session)`, at any time.
template <class Action>
std::int32_t guarded_always(vorn_session* session, Action action) noexcept {
  if (session == nullptr) return refuse(VORN_ERROR_NULL, "the session is NULL");
  try {
    return action(*session);
  } catch (const std::bad_alloc&) {
    return note(*session, VORN_ERROR_MEMORY, "not enough memory");
  } catch (const std::exception& fault) {
    return note(*session, VORN_ERROR_INTERNAL, fault.what());
  } catch (...) {
    return note(*session, VORN_ERROR_INTERNAL, "an unknown fault");
  }
}

// The same where the session may be used now.
template <class Action>
std::int32_t guarded(vorn_session* session, Action action) noexcept {
  if (session != nullptr && session->is_running()) {
    return note(*session, VORN_ERROR_ORDER, "not from an observer of this session");
  }
  return guarded_always(session, action);
}

std::int32_t null_argument(Session& session) {
  return session.fail(VORN_ERROR_NULL, "an argument is NULL");
}

std::int32_t no_results(Session& session) {
  return session.fail(VORN_ERROR_ORDER, "there are no results: run the session first");
}

// The same where there are results.
template <class Action>
std::int32_t with_results(vorn_session* session, Action action) noexcept {
  return guarded(session, [&](Session& s) -> std::int32_t {
    return s.has_results() ? action(s) : no_results(s);
  });
}

// The same with a table.
template <class Action>
std::int32_t with_table(vorn_session* session, const char* name, const void* result,
                        Action action) noexcept {
  return guarded(session, [&](Session& s) -> std::int32_t {
    if (name == nullptr || result == nullptr) return null_argument(s);
    if (!s.has_results()) return no_results(s);
    const ResultTable* const table = s.find_table(name);
    if (table == nullptr) {
      return s.fail(VORN_ERROR_ARGUMENT, "no table is called \"" + std::string(name) + '"');
    }
    return action(s, *table);
  });
}

bool holds_text(const ResultTable::Column& column) {
  return column.unit == "id" || column.unit == "text";
}

// Takes the number of a cell.
class NumberSink final : public CellSink {
 public:
  void number(double v) override { value = v; }
  void short_number(double v) override { value = v; }
  void count(std::int64_t v) override { value = static_cast<double>(v); }
  void flag(bool v) override { value = v ? 1.0 : 0.0; }
  void text(std::string_view) override { undefined(); }
  void undefined() override { value = kUndefined; }

  double value = kUndefined;
};

double number_at(const ResultTable& table, std::size_t row, std::size_t column) {
  NumberSink sink;
  table.put(row, column, sink);
  return std::isfinite(sink.value) ? sink.value : kUndefined;
}

// The column of a name and kind with room for its rows; otherwise a status below 0.
std::int32_t find_column(Session& session, const ResultTable& table, const char* name,
                         bool want_text, std::int64_t capacity, std::int64_t* count,
                         std::size_t& found) {
  for (found = 0; found < table.columns.size(); ++found) {
    if (table.columns[found].name == name) break;
  }
  if (found == table.columns.size()) {
    return session.fail(VORN_ERROR_ARGUMENT, "the table has no column \"" + std::string(name) +
                                                 "\"; some need the setting quality");
  }
  if (holds_text(table.columns[found]) != want_text) {
    return session.fail(VORN_ERROR_TYPE, want_text ? "the column holds numbers, not texts"
                                                   : "the column holds texts, not numbers");
  }
  const auto rows = static_cast<std::int64_t>(table.num_rows());
  if (count != nullptr) *count = rows;
  if (capacity < rows) {
    return session.fail(VORN_ERROR_SIZE,
                        "there are " + std::to_string(rows) + " rows, more than there is room for");
  }
  return VORN_OK;
}

}  // namespace
}  // namespace vorn::session

using vorn::ResultTable;
using vorn::session::guarded;
using vorn::session::guarded_always;
using vorn::session::null_argument;
using vorn::session::refuse;
using vorn::session::Session;
using vorn::session::SettingResult;
using vorn::session::with_results;
using vorn::session::with_table;

namespace {

std::int32_t setting_status(Session& session, SettingResult result, const char* name) {
  switch (result) {
    case SettingResult::unknown_name:
      return session.fail(VORN_ERROR_ARGUMENT,
                          "no such setting of this kind: \"" + std::string(name) + '"');
    case SettingResult::bad_value:
      return session.fail(VORN_ERROR_ARGUMENT,
                          "the setting \"" + std::string(name) + "\" cannot have this value");
    default:
      return VORN_OK;
  }
}

}  // namespace

extern "C" {

const char* vorn_status_text(int32_t status) {
  switch (status) {
    case VORN_OK:
      return "done";
    case VORN_NOT_CONVERGED:
      return "completed without convergence";
    case VORN_NO_FIGURES:
      return "completed without figures of quality";
    case VORN_ERROR_NULL:
      return "an argument is NULL";
    case VORN_ERROR_ARGUMENT:
      return "an argument has a value that it cannot have";
    case VORN_ERROR_ORDER:
      return "called at the wrong time";
    case VORN_ERROR_RANGE:
      return "an index is out of range";
    case VORN_ERROR_SIZE:
      return "an array is too small";
    case VORN_ERROR_TYPE:
      return "the column holds values of another kind";
    case VORN_ERROR_FILE:
      return "a file cannot be read or written";
    case VORN_ERROR_DATA:
      return "the data files have errors";
    case VORN_ERROR_FAILED:
      return "the adjustment failed";
    case VORN_ERROR_STOPPED:
      return "the observer stopped the run";
    case VORN_ERROR_BUSY:
      return "a run or check is going on in this process";
    case VORN_ERROR_MEMORY:
      return "not enough memory";
    case VORN_ERROR_INTERNAL:
      return "a fault of the library";
    default:
      return "unknown status";
  }
}

const char* vorn_session_version(void) { return VORN_VERSION; }

const char* vorn_session_error(const vorn_session* session) {
  return session == nullptr ? vorn::session::reason_without_session : session->error.c_str();
}

int32_t vorn_session_open(const char* path, vorn_session** session) {
  if (session == nullptr) return refuse(VORN_ERROR_NULL, "session is NULL");
  *session = nullptr;
  if (path == nullptr) return refuse(VORN_ERROR_NULL, "path is NULL");
  try {
    vorn::FileText text;
    if (!text.load(path)) {
      return refuse(VORN_ERROR_FILE, "cannot read the control file " + std::string(path));
    }
    *session = new vorn_session(vorn::absolute_path(path));
    return VORN_OK;
  } catch (const std::bad_alloc&) {
    return refuse(VORN_ERROR_MEMORY, "not enough memory");
  } catch (const std::exception& fault) {
    return refuse(VORN_ERROR_INTERNAL, fault.what());
  } catch (...) {
    return refuse(VORN_ERROR_INTERNAL, "an unknown fault");
  }
}

int32_t vorn_session_close(vorn_session* session) {
  if (session == nullptr) return VORN_OK;
  return guarded(session, [session](Session&) -> std::int32_t {
    delete session;
    return VORN_OK;
  });
}

int32_t vorn_session_set_number(vorn_session* session, const char* name, double value) {
  return guarded(session, [&](Session& s) -> std::int32_t {
    if (name == nullptr) return null_argument(s);
    return setting_status(s, vorn::session::set_number(s.settings, name, value), name);
  });
}

int32_t vorn_session_set_text(vorn_session* session, const char* name, const char* value) {
  return guarded(session, [&](Session& s) -> std::int32_t {
    if (name == nullptr || value == nullptr) return null_argument(s);
    return setting_status(s, vorn::session::set_text(s.settings, name, value), name);
  });
}

int32_t vorn_session_get_number(vorn_session* session, const char* name, double* value) {
  return guarded_always(session, [&](Session& s) -> std::int32_t {
    if (name == nullptr || value == nullptr) return null_argument(s);
    if (vorn::session::get_number(s.settings, name, *value)) return VORN_OK;
    return setting_status(s, SettingResult::unknown_name, name);
  });
}

int32_t vorn_session_set_observer(vorn_session* session, vorn_observer observer, void* user) {
  return guarded(session, [&](Session& s) -> std::int32_t {
    s.observer = observer;
    s.user = user;
    return VORN_OK;
  });
}

int32_t vorn_session_run(vorn_session* session) {
  return guarded(session, [](Session& s) -> std::int32_t { return s.run(); });
}

int32_t vorn_session_check(vorn_session* session) {
  return guarded(session, [](Session& s) -> std::int32_t { return s.check(); });
}

const char* vorn_session_messages(vorn_session* session) {
  const char* text = nullptr;
  static_cast<void>(guarded(session, [&text](Session& s) -> std::int32_t {
    text = s.messages.c_str();
    return VORN_OK;
  }));
  return text;
}

int32_t vorn_session_count_findings(vorn_session* session, int64_t* count) {
  return guarded(session, [&](Session& s) -> std::int32_t {
    if (count == nullptr) return null_argument(s);
    *count = static_cast<std::int64_t>(s.findings.size());
    return VORN_OK;
  });
}

int32_t vorn_session_finding(vorn_session* session, int64_t index, vorn_finding* finding) {
  return guarded(session, [&](Session& s) -> std::int32_t {
    if (finding == nullptr) return null_argument(s);
    if (index < 0 || index >= static_cast<std::int64_t>(s.findings.size())) {
      return s.fail(VORN_ERROR_RANGE, "there is no finding " + std::to_string(index));
    }
    const auto& found = s.findings[static_cast<std::size_t>(index)];
    *finding = {found.severity.c_str(),  found.code.c_str(),         found.place.file.c_str(),
                found.place.line,        found.place.column,         found.object.type.c_str(),
                found.object.id.c_str(), found.object.image.c_str(), found.object.parameter.c_str(),
                found.message.c_str(),   found.help.c_str()};
    return VORN_OK;
  });
}

int32_t vorn_session_count_tables(vorn_session* session, int32_t* count) {
  return with_results(session, [&](Session& s) -> std::int32_t {
    if (count == nullptr) return null_argument(s);
    *count = static_cast<std::int32_t>(s.tables().size());
    return VORN_OK;
  });
}

int32_t vorn_session_table_name(vorn_session* session, int32_t index, const char** name) {
  return with_results(session, [&](Session& s) -> std::int32_t {
    if (name == nullptr) return null_argument(s);
    if (index < 0 || static_cast<std::size_t>(index) >= s.tables().size()) {
      return s.fail(VORN_ERROR_RANGE, "there is no table " + std::to_string(index));
    }
    // Names of tables, columns and units are literals.
    *name = s.tables()[static_cast<std::size_t>(index)]->name.data();
    return VORN_OK;
  });
}

int32_t vorn_session_count_rows(vorn_session* session, const char* table, int64_t* count) {
  return with_table(session, table, count, [&](Session&, const ResultTable& found) -> std::int32_t {
    *count = static_cast<std::int64_t>(found.num_rows());
    return VORN_OK;
  });
}

int32_t vorn_session_count_columns(vorn_session* session, const char* table, int32_t* count) {
  return with_table(session, table, count, [&](Session&, const ResultTable& found) -> std::int32_t {
    *count = static_cast<std::int32_t>(found.columns.size());
    return VORN_OK;
  });
}

int32_t vorn_session_column(vorn_session* session, const char* table, int32_t index,
                            const char** name, const char** unit) {
  return with_table(
      session, table, table, [&](Session& s, const ResultTable& found) -> std::int32_t {
        if (index < 0 || static_cast<std::size_t>(index) >= found.columns.size()) {
          return s.fail(VORN_ERROR_RANGE, "there is no column " + std::to_string(index));
        }
        const ResultTable::Column& column = found.columns[static_cast<std::size_t>(index)];
        if (name != nullptr) *name = column.name.data();
        if (unit != nullptr) *unit = column.unit.data();
        return VORN_OK;
      });
}

int32_t vorn_session_numbers(vorn_session* session, const char* table, const char* column,
                             double* values, int64_t capacity, int64_t* count) {
  return with_table(
      session, table, column, [&](Session& s, const ResultTable& found) -> std::int32_t {
        if (values == nullptr && capacity != 0) return null_argument(s);
        std::size_t place = 0;
        const std::int32_t status =
            vorn::session::find_column(s, found, column, false, capacity, count, place);
        if (status != VORN_OK) return status;
        for (std::size_t row = 0; row < found.num_rows(); ++row) {
          values[row] = vorn::session::number_at(found, row, place);
        }
        return status;
      });
}

int32_t vorn_session_texts(vorn_session* session, const char* table, const char* column,
                           const char** values, int64_t capacity, int64_t* count) {
  return with_table(
      session, table, column, [&](Session& s, const ResultTable& found) -> std::int32_t {
        if (values == nullptr && capacity != 0) return null_argument(s);
        std::size_t place = 0;
        const std::int32_t status =
            vorn::session::find_column(s, found, column, true, capacity, count, place);
        if (status != VORN_OK) return status;
        const auto& texts = s.texts(found, place);
        for (std::size_t row = 0; row < texts.size(); ++row) values[row] = texts[row].c_str();
        return status;
      });
}

int32_t vorn_session_statistic(vorn_session* session, const char* name, double* value) {
  return with_table(session, "statistics", name,
                    [&](Session& s, const ResultTable& found) -> std::int32_t {
                      if (value == nullptr) return null_argument(s);
                      std::size_t place = 0;
                      const std::int32_t status =
                          vorn::session::find_column(s, found, name, false, 1, nullptr, place);
                      if (status == VORN_OK) *value = vorn::session::number_at(found, 0, place);
                      return status;
                    });
}

}  // extern "C"
