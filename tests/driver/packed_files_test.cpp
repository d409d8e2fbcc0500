// Data files that are compressed.

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "app/packed/packed.h"
#include "support/project_test.h"
#include "support/text_compare.h"
#include "text/file_system.h"

namespace vorn {
namespace {

struct Format {
  const char* extension;
  const char* command;
};

class PackedFiles : public testing::TestWithParam<Format> {
 protected:
  PackedFiles() {
    const std::string has = std::string("command -v ") + GetParam().command + " >/dev/null";
    if (std::system(has.c_str()) != 0) return;
    project_ = test::make_synthetic_project({});
    project_.write(dir_);
    for (const auto& [file, text] : project_.files) {
      if (file == "project.ctl") continue;
      // Two streams, one behind the other.
      const std::size_t half = text.size() / 2;
      dir_.write("a", text.substr(0, half));
      dir_.write("b", text.substr(half));
      const std::string pack = std::string("cd '") + dir_.path() + "' && (" + GetParam().command +
                               " -c a; " + GetParam().command + " -c b) > " + file +
                               GetParam().extension + " && rm a b";
      EXPECT_EQ(std::system(pack.c_str()), 0);
    }
    is_packed_ = true;
  }
  void SetUp() override {
    if (!is_packed_) GTEST_SKIP() << "no " << GetParam().command << " here";
    app::use_packed_files();
    FileText text;
    std::string complaint;
    static_cast<void>(
        text.load_data(dir_.path(std::string("eo.txt") + GetParam().extension), complaint));
    use_unpacker(nullptr);
    if (complaint.starts_with("this command was built without")) GTEST_SKIP() << complaint;
  }
  ~PackedFiles() override { use_unpacker(nullptr); }

  // All files but the control file are named with the extension.
  test::BundleRun run_packed() {
    std::string control = project_.files.at("project.ctl");
    for (const auto& [file, text] : project_.files) {
      const std::size_t at = control.find(file);
      if (at != std::string::npos) control.insert(at + file.size(), GetParam().extension);
    }
    dir_.write("packed.ctl", control);
    ls_params() = LSParams();
    return test::run_bundle(dir_.path("packed.ctl"), 1);
  }
  std::string text_of(const std::string& file) {
    return test::without_times(test::file_text(dir_.path(file)));
  }

  test::TempDir dir_;
  test::SyntheticProject project_;
  bool is_packed_ = false;
};

TEST_P(PackedFiles, AreReadAsTheyAre) {
  ls_params() = LSParams();
  ASSERT_EQ(test::run_bundle(dir_.path("project.ctl"), 1).result, 1);
  app::use_packed_files();
  const test::BundleRun packed = run_packed();
  ASSERT_EQ(packed.result, 1) << packed.output;
  for (const std::string result : {".ext", ".ocs", ".res", ".gcpres"}) {
    EXPECT_EQ(text_of("packed" + result), text_of("project" + result));
  }
}

TEST_P(PackedFiles, AreNothingForTheLibraryItself) { EXPECT_NE(run_packed().result, 1); }

TEST_P(PackedFiles, SayWhatIsWrongWithThem) {
  app::use_packed_files();
  const std::string name = std::string("text") + GetParam().extension;
  const std::string pack =
      std::string("cd '") + dir_.path() + "' && " + GetParam().command + " -c text > " + name;
  std::string whole;
  std::string complaint;
  FileText text;
  // Also as long as the pieces in which it is unpacked.
  for (const std::size_t size : {786432U, 262144U, 262145U, 20000U}) {
    dir_.write("text", std::string(size - 1, 'x') + '\n');
    ASSERT_EQ(std::system(pack.c_str()), 0);
    whole = test::file_text(dir_.path(name));
    EXPECT_TRUE(text.load_data(dir_.path(name), complaint)) << size << ": " << complaint;
    EXPECT_TRUE(text.view() == test::file_text(dir_.path("text"))) << size;
  }
  for (std::size_t size = 0; size < whole.size(); ++size) {
    dir_.write(name, whole.substr(0, size));
    EXPECT_FALSE(text.load_data(dir_.path(name), complaint)) << size;
    EXPECT_EQ(complaint, "the compressed file ends too early") << size;
    EXPECT_TRUE(text.view().empty());
  }
  dir_.write(name, whole + "and more of it");
  EXPECT_FALSE(text.load_data(dir_.path(name), complaint));
  EXPECT_THAT(complaint, testing::HasSubstr("is damaged"));
  EXPECT_FALSE(text.load_data(dir_.path("missing.gz"), complaint));
  EXPECT_EQ(complaint, "");
}

INSTANTIATE_TEST_SUITE_P(Formats, PackedFiles,
                         testing::Values(Format{".gz", "gzip"}, Format{".zst", "zstd"}));

}  // namespace
}  // namespace vorn
