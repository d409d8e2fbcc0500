// The token reader against the standard library's streams, and number output against printf.

#include <cmath>
#include <cstring>

#include "fuzz/fuzz_target.h"
#include "support/text_reference.h"
#include "text/token_reader.h"

namespace vorn::fuzz {
namespace {

void require_like_a_stream(std::string_view text, std::string_view script) {
  TokenReader reader(text);
  test::ReferenceReader reference(text);
  require(test::read_protocol(reader, script) == test::read_protocol(reference, script),
          "reads succeed, store and fail as the stream's");
}

// The first 16 bytes choose the reads, the rest is the text.
bool fuzz_tokens(std::string_view text) {
  constexpr std::size_t kReads = 16;
  if (text.size() <= kReads) return false;
  std::string script(text.substr(0, kReads));
  for (char& c : script) c = "wibcsd"[static_cast<unsigned char>(c) % 6];
  require_like_a_stream(text.substr(kReads), script);
  return true;
}

bool fuzz_lists(std::string_view text) {
  require_like_a_stream(text, "ptptptptptptptpt");
  return true;
}

// One byte each for notation, precision and width, then the bits of the number.
bool fuzz_number_format(std::string_view text) {
  if (text.size() < 11) return false;
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const NumberFormat format{static_cast<Notation>(byte(0) % 3), byte(1) % 18, byte(2) % 32,
                            (byte(0) & 0x80U) != 0};
  double value = 0.0;
  std::memcpy(&value, text.data() + 3, sizeof value);
  // printf tells the sign of what is no number, too; one text for both will do.
  if (std::isnan(value) && format.show_plus) return false;
  require(test::written_number(value, format) == test::printed_number(value, format),
          "a number is written as printf writes it");
  return true;
}

constexpr FuzzTarget kTargets[] = {
    {"tokens", fuzz_tokens}, {"lists", fuzz_lists}, {"number-format", fuzz_number_format}};

}  // namespace

std::span<const FuzzTarget> number_targets() { return kTargets; }

}  // namespace vorn::fuzz
