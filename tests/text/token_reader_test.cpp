#include "text/token_reader.h"

#include <gtest/gtest.h>

#include "support/noise.h"
#include "support/text_reference.h"

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
      "1234567890123456789|9007199254740993|9007199254740992.5|0.30000000000000004|"
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

TEST(TokenReader, LooksAheadWithoutReading) {
  TokenReader in("  # comment to the end\n\n x 5");
  char c = '\0';
  ASSERT_TRUE(in.peek_char(c) && c == '#');
  in.skip_line();
  ASSERT_TRUE(in.read_char(c) && c == 'x');
  in.put_back();
  std::string_view word;
  EXPECT_TRUE(in.read_word(word) && word == "x" && !in.only_blanks_left());
  std::int32_t number = 0;
  EXPECT_TRUE(in.read(number) && number == 5 && in.only_blanks_left() && in.ok());
  EXPECT_TRUE(!in.peek_char(c) && in.failed());
}

}  // namespace
}  // namespace vorn
