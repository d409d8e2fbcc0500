#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "support/captured_output.h"
#include "text/token_reader.h"

namespace vorn::test {

// A text, what reading it returns and prints, and a number that tells what has been read.
struct ReaderCase {
  std::string text;
  int result;
  int count;
  std::string output;
};

// Reads each text by `read(in, count)`, which returns the result and sets the number.
template <class Read>
void expect_reader(std::initializer_list<ReaderCase> cases, Read read) {
  for (const ReaderCase& c : cases) {
    SCOPED_TRACE(c.text);
    TokenReader in(c.text);
    int count = -1;
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read(in, count), c.result); }), c.output);
    EXPECT_EQ(count, c.count);
  }
}

}  // namespace vorn::test
