// The token reader against the standard library's streams, and number output against printf.

#include <array>
#include <bit>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

#include "fuzz/fuzz_target.h"
#include "text/number_format.h"
#include "text/token_reader.h"

namespace vorn::fuzz {
namespace {

template <class T>
bool same(const T& a, const T& b) {
  return a == b;
}
bool same(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

template <class T>
void read_both(TokenReader& reader, std::istream& stream, T initial) {
  T ours = initial;
  T theirs = initial;
  bool good = false;
  if constexpr (std::is_same_v<T, std::string>) {
    good = reader.read_word(ours);
  } else if constexpr (std::is_same_v<T, char>) {
    good = reader.read_char(ours);
  } else {
    good = reader.read(ours);
  }
  stream >> theirs;
  require(good == !stream.fail(), "a read succeeds where the stream's does");
  require(same(ours, theirs), "a read stores what the stream stores");
}

// The first 16 bytes choose the reads, the rest is the text.
bool fuzz_tokens(std::string_view text) {
  constexpr std::size_t kReads = 16;
  if (text.size() <= kReads) return false;
  const std::string_view choices = text.substr(0, kReads);
  text.remove_prefix(kReads);
  TokenReader reader(text);
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  for (const char choice : choices) {
    switch (static_cast<unsigned char>(choice) % 6) {
      case 0:
        read_both(reader, stream, std::string("old"));
        break;
      case 1:
        read_both(reader, stream, std::int32_t{-7});
        break;
      case 2:
        read_both(reader, stream, true);
        break;
      case 3:
        read_both(reader, stream, 'x');
        break;
      case 4:
        if (stream.good()) {
          reader.skip_line();
          stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        }
        break;
      default:
        read_both(reader, stream, -0.5);
        break;
    }
    require(reader.failed() == stream.fail(), "the reader fails with the stream");
  }
  return true;
}

// Lists in parentheses store all of their numbers or none.
bool fuzz_lists(std::string_view text) {
  TokenReader reader(text);
  while (reader.ok()) {
    double first = 1.0;
    double second = 2.0;
    if (!reader.read_pair(first, second)) {
      require(same(first, 1.0) && same(second, 2.0), "a failed pair stores nothing");
    }
    double triple[3] = {1.0, 2.0, 3.0};
    if (!reader.read_triple(triple)) {
      require(same(triple[0], 1.0) && same(triple[2], 3.0), "a failed triple stores nothing");
    }
  }
  return true;
}

// One byte each for notation, precision and width, then the bits of the number.
bool fuzz_number_format(std::string_view text) {
  if (text.size() < 11) return false;
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto notation = static_cast<Notation>(byte(0) % 3);
  const int precision = byte(1) % 18;
  const int width = byte(2) % 32;
  const bool plus = (byte(0) & 0x80U) != 0;
  double value = 0.0;
  std::memcpy(&value, text.data() + 3, sizeof value);
  // printf tells the sign of what is no number, too; one text for both will do.
  if (std::isnan(value) && plus) return false;

  static constexpr std::array<const char*, 3> kFormats = {"%*.*g", "%*.*f", "%*.*e"};
  static constexpr std::array<const char*, 3> kPlusFormats = {"%+*.*g", "%+*.*f", "%+*.*e"};
  const char* const format = (plus ? kPlusFormats : kFormats)[byte(0) % 3];
  std::array<char, 512> expected;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length =
      std::snprintf(expected.data(), expected.size(), format, width, precision, value);
#pragma GCC diagnostic pop
  const NumberFormat ours{notation, precision, width, plus};
  // Exactly the room that is asked for, so that a sanitizer sees one character more.
  const std::unique_ptr<char[]> out(new char[static_cast<std::size_t>(max_length(ours))]);
  const char* const end = write_number(out.get(), value, ours);
  require(std::string_view(out.get(), static_cast<std::size_t>(end - out.get())) ==
              std::string_view(expected.data(), static_cast<std::size_t>(length)),
          "a number is written as printf writes it");
  return true;
}

constexpr std::array<FuzzTarget, 3> kTargets = {{
    {"tokens", fuzz_tokens},
    {"lists", fuzz_lists},
    {"number-format", fuzz_number_format},
}};

}  // namespace

std::span<const FuzzTarget> number_targets() { return kTargets; }

}  // namespace vorn::fuzz
