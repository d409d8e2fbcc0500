#include "text/records.h"

#include <algorithm>
#include <string>
#include <utility>

namespace vorn {

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

void report_duplicate(TokenReader& in, const void* earlier, std::string_view outcome) {
  if (!in.listens()) return;
  const Place place = in.listener()->places.find(earlier);
  const Subject& subject = in.subject();
  std::string message = describe(subject) + " was read before";
  if (place.line > 0) {
    message += ", in line " + std::to_string(place.line) + " of " + place.file;
  }
  in.report(FindingCode::duplicate, subject.id, message + "; " + std::string(outcome),
            "keep one of the two records");
}

void report_unknown_reference(TokenReader& in, std::string_view word, std::string_view what,
                              std::span<const std::string_view> known) {
  if (!in.listens()) return;
  const std::string place = describe(in.subject());
  in.report(FindingCode::unknown_reference, word,
            place + " names " + std::string(what) + ' ' + quoted(word) + " that does not exist",
            suggestion(word, known));
}

}  // namespace vorn
