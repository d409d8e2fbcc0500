// Reading and writing of text, against the standard library.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "support/captured_output.h"
#include "support/noise.h"
#include "support/temp_dir.h"
#include "support/text_reference.h"
#include "support/thread_team.h"
#include "text/number_format.h"
#include "text/ordered_ranges.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {
namespace {

void expect_like_a_stream(const std::string& text) {
  for (const char* script : {"ww", "dww", "iww", "bww", "ddd", "iid", "bbb", "cdcw", "dcdcw", "pww",
                             "ppw", "tww", "ttw", "wpt"}) {
    test::ReferenceReader reference(text);
    TokenReader reader(text);
    EXPECT_EQ(test::read_protocol(reader, script), test::read_protocol(reference, script))
        << "reading [" << text << "] as " << script;
  }
}

TEST(TokenReader, ReadsWhatStreamsRead) {
  const std::string texts =
      "| |\t\r\n\v\f|a|a b c d|stop-dep|1 2 3|1,2|-1|+1|- 1|--1|+-1|0|-0|00012|007.50|"
      "1.5abc|1.5.5|1..5|.5|+.5|-.5e1|5.|5.e2|.|-.|e5|1e|1e+|1e-|1e5x|1E5|1e+05|1e5.5|"
      "1e5e5|1d5|0x10|0x|1f|inf|nan|infinity|-inf|1e308|1e309|-1e309|1e400|"
      "1e99999999999999999999|1e-99999999999999999999|0e99999999999999999999|-1e-400|"
      "1e-308|1e-320|4e-324|2e-324|2.5e-324|1.7976931348623157e308|"
      "1.7976931348623159e308|2147483647|2147483648|-2147483648|-2147483649|"
      "99999999999999999999|3.7|-3.7|2|01|-1 0 1|1 2|10|0.1|1a|a1|123456789012345678|"
      "1234567890123456789|9007199254740993|18446744073709551615|18446744073709551616|"
      "18446744073709551617|1.8446744073709551617|184467440737095516.17|18446744073709551616000|"
      "36893488147419103233|1844674407370955161.8|0.18446744073709551617|"
      "00000000018446744073709551617|"
      "999999999999999999|9999999999999999999|0.000000000000000001|0.0000000000000000001|"
      "1000000000000000000.0|100000000000000000.0|12345678901234567.89|1234567890.1234567890|"
      "9007199254740992.5|0.30000000000000004|"
      "0.1000000000000000055511151231257827021181583404541015625|"
      "100000000000000000000000000000000000000001e-20|4.35|179769313486231570000.0e288|"
      "0.000000000000000000000000000000000000000000000000000000000000000000001e70|(1,2)|"
      "(1)|( 1 , 2 )|(1;2)|(1 2)|(1,2|(1,|(|()|(a)|(1,2,3)|(1,2,3,4)|(1,2)(3)|1 (2)|(1)2|"
      "(1,)|1\r\n2\r\n|1 2\n|1,5 2,5|\xC3\xA9 \xFF|1\xA0|";
  for (std::size_t begin = 0; begin < texts.size();) {
    const std::size_t end = texts.find('|', begin);
    expect_like_a_stream(texts.substr(begin, end - begin));
    begin = end + 1;
  }
  expect_like_a_stream(std::string("a\0b 1\0", 6));
  expect_like_a_stream(std::string(800, '1') + " 0." + std::string(800, '0') + "1");

  constexpr std::string_view kAlphabet = "0123456789012345678901234567890..--++eE  \n\t(),,xa";
  test::Noise noise(1);
  for (int i = 0; i < 3000; ++i) {
    std::string text(noise.below(24), ' ');
    for (char& c : text) c = kAlphabet[noise.below(kAlphabet.size())];
    expect_like_a_stream(text);
  }
}

void expect_like_printf(double value) {
  std::vector<NumberFormat> formats = {scientific(15, 23), general(0, 17), fixed(25), fixed(0, 60)};
  for (const Notation notation : {Notation::general, Notation::fixed, Notation::scientific}) {
    for (int precision = 0; precision <= 13; ++precision) {
      formats.push_back({notation, precision, (precision * 7) % 20, precision % 3 == 1});
    }
  }
  for (const NumberFormat format : formats) {
    ASSERT_EQ(test::written_number(value, format), test::printed_number(value, format))
        << "precision " << format.precision << ", notation " << static_cast<int>(format.notation);
  }
}

TEST(NumberFormat, EqualsPrintf) {
  using Limits = std::numeric_limits<double>;
  std::istringstream edges(
      "0 0.5 1.5 2.5 0.125 0.375 0.0005 0.05 1e-5 9.9999995 999999.5 0.99999999999995 1 9.5 10 "
      "99.995 1e5 1e6 123456789.5 1e15 1e16 1e17 9007199254740993 9223372036854.775807 "
      "9223372036854775807 9.3e18 1.8e19 1e22 1e23 1e100 1e-30 1e31 1e-31 3.141592653589793 "
      "1048575.9999999999");
  std::vector<double> values = {Limits::max(), Limits::min(), Limits::denorm_min(),
                                Limits::infinity(), Limits::quiet_NaN()};
  for (double value = 0.0; edges >> value;) values.push_back(value);
  for (const double value : values) {
    expect_like_printf(value);
    expect_like_printf(-value);
  }
  test::Noise noise(2);
  for (int i = 0; i < 1500; ++i) {
    expect_like_printf(std::bit_cast<double>(noise.bits()));
    expect_like_printf(noise.normal() * std::pow(10.0, noise.uniform(-14.0, 14.0)));
    // Ties: multiples of powers of two.
    expect_like_printf(std::ldexp(std::round(noise.uniform(-5000.0, 5000.0)), -i % 12));
  }
}

TEST(OrderedRanges, ComeOutInOrderWhoeverWritesThem) {
  const auto run = [](std::size_t num_workers, std::size_t grain) {
    const test::ThreadTeam team(num_workers);
    const test::TempDir dir;
    TextWriter out;
    EXPECT_TRUE(out.open(dir.path("text")));
    TextWriter second;
    EXPECT_TRUE(second.open(dir.path("second")));
    std::string said;
    const std::string errors = test::captured_errors([&] {
      said = test::captured_output([&] {
        write_ranges(out, 1000, grain, [](TextWriter& text, std::size_t begin, std::size_t end) {
          for (std::size_t k = begin; k < end; ++k) {
            text << std::uint64_t{k} << ' ';
            if (k % 100 == 0) standard_output() << std::uint64_t{k} << "\a ";
            if (k % 90 == 0) error_output() << std::uint64_t{k} << '\n';
          }
        });
        write_ranges(out, second, 1000, grain,
                     [](TextWriter& a, TextWriter& b, std::size_t begin, std::size_t end) {
                       for (std::size_t k = begin; k < end; ++k) {
                         (k % 3 == 0 ? a : b) << std::uint64_t{k} << ',';
                       }
                     });
        visit_ranges(10, 1, [](std::size_t begin, std::size_t end) {
          for (std::size_t k = begin; k < end; ++k) standard_output() << std::uint64_t{k};
        });
        standard_output() << "end";
      });
    });
    out.close();
    second.close();
    return dir.read("text") + '|' + said + '|' + errors + '|' + dir.read("second");
  };
  const std::string alone = run(1, 7);
  EXPECT_NE(alone.find(",996,999,|0\a 100\a "), std::string::npos);
  EXPECT_NE(alone.find(" 0123456789end|0\n90\n"), std::string::npos);
  EXPECT_NE(alone.find(" 999 0,3,6,"), std::string::npos);
  EXPECT_NE(alone.find("|1,2,4,5,"), std::string::npos);
  for (const std::size_t grain : {1U, 7U, 400U, 1000U}) EXPECT_EQ(run(3, grain), alone) << grain;
  EXPECT_THROW(visit_ranges(1, 1, [](std::size_t, std::size_t) { throw std::bad_alloc(); }),
               std::bad_alloc);
}

TEST(TextWriter, WritesEverythingInOrderOrNowhere) {
  const test::TempDir dir;
  std::string expected(200'000, 'x');
  TextWriter out;
  out << "lost" << 1 << expected;
  EXPECT_FALSE(out.open(dir.path()));
  ASSERT_TRUE(out.open(dir.path("text")));
  out << expected;
  for (int i = 0; i < 20'000; ++i) {
    out << i << '\n';
    expected += std::to_string(i) + '\n';
  }
  out << right_aligned("ab", 4) << left_aligned("ab", 4) << '|' << right_aligned("abc", 2);
  out.integer(-7, 5) << std::int64_t{-9'000'000'000} << std::uint64_t{18'000'000'000'000'000'000U};
  // Opening the next file closes the one before.
  ASSERT_TRUE(out.open(dir.path("other")));
  out << "else";
  out.close();
  out << "lost";
  EXPECT_EQ(dir.read("text"), expected + "  abab  |abc   -7-900000000018000000000000000000");
  EXPECT_EQ(dir.read("other"), "else");
}

// In any order, whether lines are many or long.
TEST(TokenReader, KnowsThePlaceOfEachWord) {
  const std::string text = "a \xC3\xA9t\xC3\xA9 b\n\n\t c d\xE9 \xE2\x82\xAC e\r\nf g h\n i";
  const TokenReader all(text);
  std::vector<std::pair<std::string_view, std::pair<int, int>>> words;
  int line = 1;
  int column = 1;
  bool in_word = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool continues = (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
    const bool blank = std::string_view(" \t\r\n").find(text[at]) != std::string_view::npos;
    if (!blank && !in_word) words.push_back({std::string_view(text).substr(at, 1), {line, column}});
    in_word = !blank;
    column += continues ? 0 : 1;
    if (text[at] != '\n') continue;
    ++line;
    column = 1;
  }
  ASSERT_EQ(words.size(), 11U);
  for (std::size_t step = 1; step < words.size(); ++step) {
    for (std::size_t k = 0; k < words.size(); ++k) {
      const auto& [word, expected] = words[k * step % words.size()];
      const Place place = all.place_of(word);
      EXPECT_EQ(std::pair(place.line, place.column), expected) << word << ", step " << step;
    }
  }
}

}  // namespace
}  // namespace vorn
