#pragma once

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
// record begins with and returns 1 or -1.
template <class ReadRecord>
[[nodiscard]] int read_records(TokenReader& in, EndWords end_words, const ReadRecord& read_record) {
  std::string_view word;
  while (in.read_word(word) && !is_end_word(word, end_words)) {
    in.note_progress();
    if (read_record(word) != 1) return -1;
  }
  return 1;
}

// ---- findings that readers share; without a listener nothing happens
// -----------------------------

// An unknown word where one of the known ones belongs; `what` says what it should name.
void report_unknown_word(TokenReader& in, std::string_view word, std::string_view what,
                         std::span<const std::string_view> known);

// The running record has the identifier of an object read before; `outcome` says which one counts.
void report_duplicate(TokenReader& in, const void* earlier, std::string_view outcome);

// Where the word names `what` ("a camera") that is not among the identifiers.
void report_unknown_reference(TokenReader& in, std::string_view word, std::string_view what,
                              std::span<const std::string_view> known);
template <class List>
void report_unknown_reference(TokenReader& in, std::string_view word, std::string_view what,
                              const List& list) {
  if (!in.listens()) return;
  std::vector<std::string_view> known;
  for (const auto& object : list) known.push_back(object.id);
  report_unknown_reference(in, word, what, std::span<const std::string_view>(known));
}

}  // namespace vorn
