#include "text/findings.h"

#include <algorithm>
#include <array>
#include <functional>

#include "text/unicode.h"

namespace vorn {
namespace {

struct CodeRow {
  std::string_view name;
  Severity severity;
};

// In the order of the codes.
constexpr std::array<CodeRow, 23> kCodes = {{
    {"file-missing", Severity::error},
    {"encoding", Severity::error},
    {"keyword-unknown", Severity::error},
    {"number-expected", Severity::error},
    {"value-missing", Severity::error},
    {"end-missing", Severity::error},
    {"trailing-text", Severity::warning},
    {"duplicate", Severity::warning},
    {"unknown-reference", Severity::error},
    {"unused", Severity::warning},
    {"value-range", Severity::error},
    {"unit-suspect", Severity::warning},
    {"axes-suspect", Severity::warning},
    {"rotation-suspect", Severity::warning},
    {"gross-start", Severity::warning},
    {"rays", Severity::warning},
    {"undetermined", Severity::error},
    {"datum", Severity::error},
    {"islands", Severity::error},
    {"geometry-weak", Severity::warning},
    {"output-clash", Severity::error},
    {"empty-project", Severity::error},
    {"memory", Severity::note},
}};
static_assert(kCodes.size() == static_cast<std::size_t>(FindingCode::memory) + 1);

const CodeRow& row_of(FindingCode code) { return kCodes[static_cast<std::size_t>(code)]; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Number of characters to insert, delete or exchange to make one word of the other (Levenshtein
// 1966), without regard to case. Row i of the table of prefixes follows from row i - 1.
std::size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) row[j] = j;
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string_view name_of(FindingCode code) { return row_of(code).name; }

Severity severity_of(FindingCode code) { return row_of(code).severity; }

std::string_view name_of(Severity severity) {
  constexpr std::array<std::string_view, 3> kNames = {"error", "warning", "note"};
  return kNames[static_cast<std::size_t>(severity)];
}

// ---- places ------------------------------------------------------------------------------------

void RecordPlaces::put(const void* object, std::int32_t line, std::int32_t column,
                       std::size_t number) {
  entries_.push_back({{object, number}, static_cast<std::uint32_t>(files_.size()), line, column});
}

Place RecordPlaces::find(const void* object, std::size_t number) const {
  const auto before = [](const Entry& a, const Entry& b) { return std::less<>()(a.key, b.key); };
  if (sorted_ != entries_.size()) {
    std::stable_sort(entries_.begin(), entries_.end(), before);
    sorted_ = entries_.size();
  }
  const Entry wanted{{object, number}, 0, 0, 0};
  const auto end = std::upper_bound(entries_.begin(), entries_.end(), wanted, before);
  if (end == entries_.begin() || (end - 1)->key != wanted.key) return {};
  const Entry& entry = *(end - 1);
  return {entry.file == 0 ? std::string() : files_[entry.file - 1], entry.line, entry.column};
}

// ---- lists -------------------------------------------------------------------------------------

void FindingList::add(Finding finding) {
  if (++alike_[{finding.code, finding.file}] <= kMaxAlike) kept_.push_back(std::move(finding));
}

bool FindingList::only_counts(FindingCode code, std::string_view file) const {
  const auto found = alike_.find({code, printable(file)});
  return found != alike_.end() && found->second >= kMaxAlike;
}

std::vector<Finding> FindingList::findings() const {
  std::vector<Finding> result = kept_;
  std::map<std::pair<FindingCode, std::string>, std::size_t> met;
  for (Finding& finding : result) {
    const std::pair<FindingCode, std::string> kind{finding.code, finding.file};
    const std::size_t all = alike_.at(kind);
    if (++met[kind] == kMaxAlike && all > kMaxAlike) {
      finding.message += " (and " + std::to_string(all - kMaxAlike) + " more like this)";
    }
  }
  return result;
}

std::size_t FindingList::count(Severity severity) const {
  return static_cast<std::size_t>(
      std::count_if(kept_.begin(), kept_.end(),
                    [=](const Finding& finding) { return finding.severity() == severity; }));
}

// ---- texts -------------------------------------------------------------------------------------

void print_finding(TextWriter& out, const Finding& finding) {
  if (!finding.file.empty()) out << finding.file << ':';
  if (finding.line > 0) out << finding.line << ':' << finding.column << ':';
  out << (finding.file.empty() ? "" : " ") << name_of(finding.severity()) << ": " << finding.message
      << '\n';
  if (!finding.help.empty()) out << "  help: " << finding.help << '\n';
}

std::string printable(std::string_view text) {
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = character_at(text, at);
    if (character.code < 0x20 || (character.code >= 0x7f && character.code < 0xa0)) {
      result += "\\x";
      result += kHexDigits[character.code >> 4U];
      result += kHexDigits[character.code & 15U];
    } else {
      append_utf8(result, character.code);
    }
    at += character.size;
  }
  return result;
}

std::string quoted(std::string_view word) {
  constexpr std::size_t kMaxLength = 60;
  std::string result = "\"" + printable(word.substr(0, kMaxLength));
  return result + (word.size() > kMaxLength ? "...\"" : "\"");
}

std::string suggestion(std::string_view word, std::span<const std::string_view> known) {
  constexpr std::size_t kLongestWord = 64;
  constexpr std::size_t kMostNames = 3;
  if (word.empty() || word.size() > kLongestWord) return {};
  std::size_t best = std::max<std::size_t>(1, word.size() / 3);
  std::vector<std::string_view> nearest;
  for (const std::string_view candidate : known) {
    if (candidate.size() > kLongestWord) continue;
    const std::size_t distance = edit_distance(word, candidate);
    if (distance > best) continue;
    if (distance < best) nearest.clear();
    best = distance;
    if (nearest.size() < kMostNames) nearest.push_back(candidate);
  }
  if (nearest.empty()) return {};
  std::string text = "did you mean ";
  for (std::size_t i = 0; i < nearest.size(); ++i) {
    text += (i == 0 ? "" : " or ") + quoted(nearest[i]);
  }
  return text + '?';
}

}  // namespace vorn
