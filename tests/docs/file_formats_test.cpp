// The examples in docs/file-formats.md are what the readers accept and what a run writes.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "driver/bundle_project.h"
#include "geometry/eo_file.h"
#include "support/bundle_run.h"
#include "support/captured_output.h"
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
  int num_lines = 0;
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
      ++blocks.back().num_lines;
    }
  }
  return blocks;
}

std::string first_lines(const std::string& text, int count) {
  std::istringstream in(text);
  std::string lines;
  std::string line;
  while (count-- > 0 && std::getline(in, line)) lines += line + '\n';
  return lines;
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
      actual = first_lines(actual, block.num_lines - 1);
    }
    EXPECT_EQ(test::first_difference(actual, expected), "") << block.name;
    ++compared;
  }
  EXPECT_EQ(compared, 7);
}

TEST(FileFormats, VariantsOfThePageAreRead) {
  const test::LSParamsGuard guard;
  BundleProject project;
  // Each reads its file and returns how many objects the list holds then, or -1.
  const std::map<std::string, std::function<int(TokenReader&)>> readers = {
      {"camera",
       [&](TokenReader& in) {
         return read_camera_file(in, project.cameras) == 1 ? project.cameras.count() : -1;
       }},
      {"image-geometry",
       [&](TokenReader& in) {
         return read_eo_file(in, project.image_geometries) == 1 ? project.image_geometries.count()
                                                                : -1;
       }},
      {"obj-crds",
       [&](TokenReader& in) {
         return read_obj_crds(in, project.object_points) == 1 ? project.object_points.count() : -1;
       }},
      {"ap-set", [&](TokenReader& in) {
         return read_ap_set_file(in, project.ap_sets) == 1 ? project.ap_sets.count() : -1;
       }}};
  const std::map<std::string, int> expected = {
      {"camera", 4}, {"image-geometry", 4}, {"obj-crds", 2}, {"ap-set", 2}};
  std::map<std::string, int> counts;
  for (const Block& block : blocks_of_page()) {
    const auto reader = readers.find(block.folder);
    if (reader == readers.end()) continue;
    TokenReader in(block.text);
    const std::string output =
        test::captured_output([&] { counts[block.folder] = reader->second(in); });
    EXPECT_EQ(output, "") << block.folder;
  }
  EXPECT_EQ(counts, expected);
  // The last number of the last record has arrived where it belongs.
  ASSERT_NE(project.ap_sets.find("film"), nullptr);
  EXPECT_EQ(project.ap_sets.find("film")->std_dev(11), 1e31);
  EXPECT_EQ(project.image_geometries.find("104")->value(7), 1e-5);
}

}  // namespace
}  // namespace vorn
