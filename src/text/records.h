#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "text/keywords.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

// How data files are made up of records. Readers of files and records return 1, or -1 with a
// message on standard output; what reads a single value returns true or false.

namespace vorn {

// Words that end a list: "stop-dep" everywhere; where a list holds identifiers of points or images,
// "-1" too.
enum class EndWords : std::uint8_t { keyword, keyword_or_minus_one };

inline bool is_end_word(std::string_view word, EndWords end_words) {
  return word == kEndWord || (end_words == EndWords::keyword_or_minus_one && word == "-1");
}

// The result of a reader that fails, after its message on standard output.
template <class... Parts>
[[nodiscard]] int reading_failed(const Parts&... parts) {
  (standard_output() << ... << parts);
  return -1;
}

// Reads records up to an end word or the end of the text. `read_record(word)` gets the word that a
// record begins with and returns 1 or -1. Where a listener wants more behind a failure, reading
// goes on at the next line whose first word, `next`, may begin another record by
// `begins_record(record, next)`.
template <class ReadRecord, class BeginsRecord>
[[nodiscard]] int read_records(TokenReader& in, EndWords end_words, const ReadRecord& read_record,
                               const BeginsRecord& begins_record) {
  int result = 1;
  std::string_view word;
  while (in.read_word(word) && !is_end_word(word, end_words)) {
    in.note_progress();
    if (!in.is_broken(word) && read_record(word) == 1) continue;
    result = -1;
    const auto acceptable = [&](std::string_view next) {
      return is_end_word(next, end_words) || begins_record(word, next);
    };
    if (!in.resume(word, acceptable)) break;
  }
  return result;
}

// The same for records that begin with any word, each on a line of its own.
template <class ReadRecord>
[[nodiscard]] int read_records(TokenReader& in, EndWords end_words, const ReadRecord& read_record) {
  return read_records(in, end_words, read_record,
                      [](std::string_view, std::string_view) { return true; });
}

// Whether the first word of a line may begin a record of so many words behind another record.
[[nodiscard]] bool may_begin_record(const TokenReader& in, std::string_view record,
                                    std::string_view next, std::size_t words_per_record);

// The same for records that begin with any word and may go on in the lines that follow.
template <class ReadRecord>
[[nodiscard]] int read_records(TokenReader& in, EndWords end_words, const ReadRecord& read_record,
                               std::size_t words_per_record) {
  return read_records(in, end_words, read_record,
                      [&](std::string_view record, std::string_view next) {
                        return may_begin_record(in, record, next, words_per_record);
                      });
}

inline bool is_keyword(std::string_view word) { return lookup_keyword(word) != Keyword::none; }
// For records that begin with keywords.
inline bool begins_with_keyword(std::string_view /*record*/, std::string_view next) {
  return is_keyword(next);
}

// ---- findings that readers share; without a listener nothing happens
// -----------------------------

// An unknown word where one of the known ones belongs; `what` says what it should name.
void report_unknown_word(TokenReader& in, std::string_view word, std::string_view what,
                         std::span<const std::string_view> known);

// The running record has the identifier of an object read before, whose place is known by its
// address and the number; `outcome` says which one counts.
void report_duplicate(TokenReader& in, const void* earlier, std::string_view outcome,
                      std::size_t number = 0);

// Whether a name that leads nowhere in the list of that keyword is a finding: not where the list is
// known to lack something.
bool has_reason_to_report(const TokenReader& in, std::string_view keyword);

// The word names a `noun` that is not among the known ones.
void report_unknown_reference(TokenReader& in, std::string_view word, std::string_view noun,
                              std::span<const std::string_view> known);
// The same for the list that the files of a keyword fill.
template <class List>
void report_unknown_reference(TokenReader& in, std::string_view word, std::string_view noun,
                              std::string_view keyword, const List& list) {
  if (!has_reason_to_report(in, keyword)) return;
  std::vector<std::string_view> known;
  for (const auto& object : list) known.push_back(object.id);
  report_unknown_reference(in, word, noun, std::span<const std::string_view>(known));
}

}  // namespace vorn
