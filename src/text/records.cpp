#include "text/records.h"

#include <algorithm>
#include <string>
#include <utility>

#include "text/text_checks.h"

namespace vorn {
namespace {

// Number of words, up to a limit.
std::size_t count_words(std::string_view text, std::size_t limit) {
  TokenReader words(text);
  std::string_view word;
  std::size_t count = 0;
  while (count < limit && words.read_word(word)) ++count;
  return count;
}

}  // namespace

void report_unknown_word(TokenReader& in, std::string_view word, std::string_view what,
                         std::span<const std::string_view> known) {
  if (!in.listens()) return;
  std::string help = suggestion(word, known);
  if (help.empty() && !known.empty()) {
    constexpr std::size_t kMostNames = 9;
    help = "known here:";
    for (const std::string_view name : known.first(std::min(known.size(), kMostNames))) {
      help += ' ' + quoted(name);
    }
  }
  in.report(FindingCode::keyword_unknown, word, "unknown " + std::string(what) + ' ' + quoted(word),
            std::move(help));
}

void report_duplicate(TokenReader& in, const void* earlier, std::string_view outcome,
                      std::size_t number) {
  if (!in.listens()) return;
  const Subject& subject = in.subject();
  if (in.listener()->only_counts(FindingCode::duplicate, in.file())) {
    return in.report(FindingCode::duplicate, subject.id, {});
  }
  const Place place = in.listener()->places.find(earlier, number);
  std::string message = describe(subject) + " was read before";
  if (place.line > 0) {
    message += ", in line " + std::to_string(place.line) + " of " + place.file;
  }
  in.report(FindingCode::duplicate, subject.id, message + "; " + std::string(outcome),
            "keep one of the two records");
}

bool may_begin_record(const TokenReader& in, std::string_view record, std::string_view next,
                      std::size_t words_per_record) {
  const std::string_view text = in.text_from(record);
  const auto at = static_cast<std::size_t>(next.data() - text.data());
  const std::string_view line = text.substr(at, text.substr(at).find('\n'));
  if (next.front() == '(') return false;
  if (line.find('(') != std::string_view::npos) return true;
  const auto fits = [&](std::string_view words) {
    return count_words(words, words_per_record + 1) == words_per_record;
  };
  if (fits(text.substr(0, at)) || fits(line)) return true;
  return !is_number(record) && !is_number(next);
}

bool has_reason_to_report(const TokenReader& in, std::string_view keyword) {
  return in.listens() && !in.listener()->incomplete.contains(keyword);
}

void report_unknown_reference(TokenReader& in, std::string_view word, std::string_view noun,
                              std::span<const std::string_view> known) {
  if (in.listener()->only_counts(FindingCode::unknown_reference, in.file())) {
    return in.report(FindingCode::unknown_reference, word, {});
  }
  std::string name(noun);
  name += ' ' + quoted(word);
  std::string help = suggestion(word, known);
  if (known.empty()) {
    help = "none was read before: name its file earlier in the control file";
  }
  in.report(FindingCode::unknown_reference, word,
            in.subject().id == word
                ? "there is no " + name
                : describe(in.subject()) + " names the " + name + ", which does not exist",
            std::move(help));
}

}  // namespace vorn
