// The examples in docs/file-formats.md are what a run reads and writes.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/temp_dir.h"
#include "support/text_compare.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;

// A fenced block "```text FOLDER/NAME".
struct Block {
  std::string folder;
  std::string name;
  std::string text;
};

std::vector<Block> blocks_of_page() {
  std::istringstream page(test::file_text(fs::path(VORN_SOURCE_DIR) / "docs" / "file-formats.md"));
  const std::string fence = "```";
  const std::string opening = fence + "text ";
  std::vector<Block> blocks;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (!inside && line.starts_with(opening)) {
      const fs::path name = line.substr(opening.size());
      blocks.push_back({name.parent_path().string(), name.filename().string(), {}});
      inside = true;
    } else if (inside && line == fence) {
      inside = false;
    } else if (inside) {
      blocks.back().text += line + '\n';
    }
  }
  return blocks;
}

TEST(FileFormats, ProjectOfThePageGivesItsResults) {
  const test::TempDir dir;
  const test::LSParamsGuard guard;
  const std::vector<Block> blocks = blocks_of_page();
  for (const Block& block : blocks) {
    if (block.folder == "tiny") dir.write(block.name, block.text);
  }
  const test::BundleRun run = test::run_bundle(dir.path("tiny.ctl"), 1);
  ASSERT_EQ(run.result, 1) << run.output;
  EXPECT_EQ(run.errors, "");
  EXPECT_NE(dir.read("tiny.out").find("Sigma 0 a posteriori    :  4.26 um"), std::string::npos);

  int compared = 0;
  const std::string more = "...\n";
  for (const Block& block : blocks) {
    if (block.folder != "results") continue;
    std::string expected = block.text;
    std::string actual = dir.read(block.name);
    if (expected.ends_with(more)) {
      expected.resize(expected.size() - more.size());
      const auto lines = std::count(expected.begin(), expected.end(), '\n');
      std::size_t end = 0;
      for (auto i = lines; i > 0; --i) end = actual.find('\n', end) + 1;
      actual.resize(end);
    }
    EXPECT_EQ(test::first_difference(actual, expected), "") << block.name;
    ++compared;
  }
  EXPECT_EQ(compared, 7);
}

}  // namespace
}  // namespace vorn
