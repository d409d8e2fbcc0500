// Files of a run, in each of the ways in which they come to be.

#include "text/output_files.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_dir.h"
#include "text/csv_field.h"
#include "text/unicode.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// What one run leaves in a directory that holds the results of an earlier one.
class OutputFilesTest : public testing::TestWithParam<OutputMode> {
 protected:
  OutputFilesTest() {
    dir_.write("a", "old a");
    dir_.write("b", "old b");
    outputs_.emplace(GetParam());
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_.path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }
  test::TempDir dir_;
  std::optional<OutputFiles> outputs_;
};

TEST_P(OutputFilesTest, CommitsAllOrIsNotThere) {
  TextWriter& a = outputs_->open(dir_.path("a"));
  TextWriter& c = outputs_->open(dir_.path("c"));
  a << "new a";
  c << "new c";
  outputs_->finish(a);
  EXPECT_EQ(dir_.read("a"), GetParam() == OutputMode::in_place ? "new a" : "old a");
  EXPECT_THAT(outputs_->paths(), ElementsAre(dir_.path("a"), dir_.path("c")));
  EXPECT_TRUE(outputs_->commit());
  EXPECT_THAT(outputs_->failures(), IsEmpty());
  const bool written = GetParam() != OutputMode::discarded;
  EXPECT_EQ(dir_.read("a"), written ? "new a" : "old a");
  EXPECT_EQ(dir_.read("b"), "old b");
  EXPECT_EQ(dir_.has("c"), written);
  outputs_.reset();
  EXPECT_EQ(names().size(), written ? 3U : 2U);
}

TEST_P(OutputFilesTest, AbandonsAllButWhatIsKept) {
  outputs_->open(dir_.path("a"), dir_.path("a.failed")) << "new a";
  outputs_->open(dir_.path("b")) << "new b";
  const bool in_place = GetParam() == OutputMode::in_place;
  outputs_->abandon();
  EXPECT_EQ(dir_.read("a"), in_place ? "new a" : "old a");
  EXPECT_EQ(dir_.read("b"), in_place ? "new b" : "old b");
  if (GetParam() == OutputMode::replaced) {
    EXPECT_THAT(names(), UnorderedElementsAre("a", "b", "a.failed"));
    EXPECT_EQ(dir_.read("a.failed"), "new a");
  } else {
    EXPECT_THAT(names(), UnorderedElementsAre("a", "b"));
  }
}

TEST_P(OutputFilesTest, WhoIsDestroyedAbandons) {
  outputs_->open(dir_.path("a")) << "new a";
  outputs_.reset();
  EXPECT_EQ(dir_.read("a"), GetParam() == OutputMode::in_place ? "new a" : "old a");
  EXPECT_THAT(names(), UnorderedElementsAre("a", "b"));
}

TEST_P(OutputFilesTest, NamesTheFileThatCannotBeWritten) {
  if (GetParam() == OutputMode::discarded) return;  // nothing is written
  outputs_->open(dir_.path("a")) << "new a";
  TextWriter& lost = outputs_->open(dir_.path("nowhere/c"));
  lost << "lost";
  EXPECT_FALSE(outputs_->commit());
  ASSERT_EQ(outputs_->failures().size(), 1U);
  EXPECT_EQ(outputs_->failures()[0].path, dir_.path("nowhere/c"));
  EXPECT_FALSE(outputs_->failures()[0].reason.empty());
  // All of the new files or none of them.
  EXPECT_EQ(dir_.read("a"), GetParam() == OutputMode::in_place ? "new a" : "old a");
}

#ifndef _WIN32
// A link is replaced, and what it leads to stays; a file keeps the rights that its owner gave it.
TEST(ReplacedFiles, LinksAndRights) {
  const test::TempDir dir;
  dir.write("elsewhere", "mine");
  dir.write("a", "old a");
  fs::create_symlink(dir.path("elsewhere"), dir.path("link"));
  fs::permissions(dir.path("a"), fs::perms::owner_read | fs::perms::owner_write);
  OutputFiles outputs(OutputMode::replaced);
  outputs.open(dir.path("link")) << "new";
  outputs.open(dir.path("a")) << "new a";
  EXPECT_TRUE(outputs.commit());
  EXPECT_EQ(dir.read("elsewhere"), "mine");
  EXPECT_EQ(dir.read("link"), "new");
  EXPECT_EQ(dir.read("a"), "new a");
  EXPECT_EQ(fs::status(dir.path("a")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}
#endif

INSTANTIATE_TEST_SUITE_P(Modes, OutputFilesTest,
                         testing::Values(OutputMode::in_place, OutputMode::replaced,
                                         OutputMode::discarded));

// A captured text takes what a file would get, whether there is a file or not, and only meanwhile.
TEST(TextWriter, CapturesWithAndWithoutAFile) {
  const test::TempDir dir;
  for (const bool with_file : {false, true}) {
    TextWriter out;
    if (with_file) {
      ASSERT_TRUE(out.open(dir.path("text")));
    }
    std::string captured;
    out << "before ";
    out.capture(&captured);
    out << "a" << ' ' << std::int64_t{-1} << ' ' << std::uint64_t{2} << ' ' << fixed(2)(0.5);
    out.capture(nullptr);
    out << "after";
    out.close();
    EXPECT_EQ(captured, "a -1 2 0.50");
    if (with_file) {
      EXPECT_EQ(dir.read("text"), "before after");
    }
  }
}

TEST(CsvField, QuotesWhereItMust) {
  const auto field = [](std::string_view text) {
    std::ostringstream out;
    write_csv_field(out, text);
    return out.str();
  };
  EXPECT_EQ(field("plain 1.5"), "plain 1.5");
  EXPECT_EQ(field("a,b"), "\"a,b\"");
  EXPECT_EQ(field("say \"a\""), "\"say \"\"a\"\"\"");
  EXPECT_EQ(field("two\nlines"), "\"two\nlines\"");
  EXPECT_EQ(field(""), "");
}

// UTF-8 of all lengths, and bytes that are none.
TEST(Unicode, CharactersOfTextsAndOfRubbish) {
  struct Row {
    std::string text;
    std::vector<std::uint32_t> codes;
  };
  const std::vector<Row> rows = {
      {"aZ", {0x61, 0x5A}},
      {"\xC3\xA9", {0xE9}},
      {"\xE2\x82\xAC", {0x20AC}},
      {"\xF0\x9F\x93\xB7", {0x1F4F7}},
      {"\xC3", {0xC3}},
      {"\xE9t\xE9", {0xE9, 't', 0xE9}},
      {"\x80\xBF", {0x80, 0xBF}},
      {"\xE2\x82", {0xE2, 0x82}},
      {"\xC0\x80", {0xC0, 0x80}},
      {"\xED\xA0\x80", {0xED, 0xA0, 0x80}},
      {"\xF5\x80\x80\x80", {0xF5, 0x80, 0x80, 0x80}},
  };
  for (const auto& [text, codes] : rows) {
    std::vector<std::uint32_t> found;
    for (std::size_t at = 0; at < text.size();) {
      const Character character = character_at(text, at);
      found.push_back(character.code);
      ASSERT_GT(character.size, 0U);
      at += character.size;
    }
    EXPECT_EQ(found, codes) << testing::PrintToString(text);
    EXPECT_EQ(count_characters(text), codes.size());
  }
  for (const std::uint32_t code : {0x41U, 0x7FFU, 0x800U, 0xFFFFU, 0x10000U, 0x10FFFFU}) {
    std::string text;
    append_utf8(text, code);
    EXPECT_EQ(character_at(text, 0).code, code);
    EXPECT_EQ(character_at(text, 0).size, text.size());
  }
  EXPECT_EQ(code_point_name(0xA0), "U+00A0");
  EXPECT_TRUE(
      has_invisible("a\xC2\xA0"
                    "b"));
  EXPECT_TRUE(has_invisible(std::string("a\0b", 3)));
  EXPECT_TRUE(has_invisible("\xEF\xBB\xBFi1"));
  EXPECT_FALSE(has_invisible("\xC3\xA9t\xC3\xA9_1"));
}

}  // namespace
}  // namespace vorn
