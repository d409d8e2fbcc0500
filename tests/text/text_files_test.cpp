// Writing and loading of whole files.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/captured_output.h"
#include "support/temp_dir.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn {
namespace {

TEST(TextWriter, WritesEverythingInOrder) {
  const test::TempDir dir;
  const std::string large(200'000, 'x');
  std::string expected;
  {
    TextWriter out;
    EXPECT_FALSE(out.is_open());
    out << "lost" << 1 << large;
    ASSERT_TRUE(out.open(dir.path("text")));
    for (int i = 0; i < 20'000; ++i) {
      out << i << ' ' << fixed(3, 9)(i * 0.5) << '\n';
      char line[40];
      std::snprintf(line, sizeof line, "%d %9.3f\n", i, i * 0.5);
      expected += line;
    }
    out << large << right_aligned("ab", 4) << left_aligned("ab", 4) << '|'
        << right_aligned("abc", 2);
    out.integer(-7, 5) << std::int64_t{-9'000'000'000}
                       << std::uint64_t{18'000'000'000'000'000'000U};
    expected += large + "  abab  |abc   -7-900000000018000000000000000000";
  }
  EXPECT_EQ(dir.read("text"), expected);

  TextWriter again;
  ASSERT_TRUE(again.open(dir.path("text")));
  again << "short";
  again.flush();
  EXPECT_EQ(dir.read("text"), "short");
  ASSERT_TRUE(again.open(dir.path("other")));
  again << "else";
  again.close();
  again << "lost";
  EXPECT_EQ(dir.read("text") + dir.read("other"), "shortelse");
}

TEST(TextWriter, DiscardsWhatCannotBeWritten) {
  const test::TempDir dir;
  TextWriter out;
  EXPECT_FALSE(out.open(dir.path()));
  EXPECT_FALSE(out.open(dir.path("no/such/directory")));
  out << "lost" << 15 << 'x' << fixed(2)(1.0);
  if (file_kind("/dev/full") == FileKind::character_device) {
    ASSERT_TRUE(out.open("/dev/full"));
    for (int i = 0; i < 100; ++i) out << std::string(10'000, 'x');
    out.flush();
  }
  EXPECT_EQ(test::written_text([](TextWriter& console) { console << "console " << 5; }),
            "console 5");
}

TEST(FileText, LoadsFilesAndNothingElse) {
  const test::TempDir dir;
  const std::string text = "line\r\n\0zero" + std::string(100'000, 'y');
  FileText file;
  EXPECT_TRUE(file.load(dir.write("file", text)));
  EXPECT_EQ(file.view(), text);
  EXPECT_TRUE(file.load(dir.write("empty", "")));
  EXPECT_EQ(file.view(), "");
  for (const std::string& path :
       {dir.path("missing"), dir.path(), std::string(), dir.path("file/x"), dir.path("empty/")}) {
    EXPECT_FALSE(file.load(path)) << path;
  }
  if (file_kind("/dev/null") == FileKind::character_device) {
    EXPECT_TRUE(file.load("/dev/null"));
    EXPECT_EQ(file.view(), "");
    EXPECT_TRUE(file.load("/dev/zero")) << "an endless device ends somewhere";
  }
}

TEST(FileSystem, TellsFilesApart) {
  const test::TempDir dir;
  const std::string a = dir.write("a", "");
  const std::string b = dir.write("b", "");
  EXPECT_EQ(file_kind(a), FileKind::regular);
  EXPECT_EQ(file_kind(dir.path()), FileKind::directory);
  EXPECT_EQ(file_kind(dir.path() + '/'), FileKind::directory);
  EXPECT_EQ(file_kind(dir.path("c")), FileKind::missing);
  EXPECT_TRUE(same_file(a, dir.path() + "/./a"));
  EXPECT_FALSE(same_file(a, b));
  EXPECT_FALSE(same_file(dir.path("c"), dir.path("c")));
  EXPECT_TRUE(change_directory(dir.path()));
  EXPECT_EQ(current_directory(), dir.path());
  EXPECT_FALSE(change_directory("no-such-directory"));
}

}  // namespace
}  // namespace vorn
