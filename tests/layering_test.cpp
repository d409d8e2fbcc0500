// Holds the include lines of the sources against the direction in which layers may depend.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

// From the bottom up: a file includes its own layer and those before it.
constexpr std::array<std::string_view, 9> kLayers = {"text",    "lsq engine",  "geometry",
                                                     "sensors", "calibration", "lsq stages",
                                                     "report",  "driver",      "app"};

// The part of lsq/ that knows cameras and images; everything else there is the engine.
constexpr std::array<std::string_view, 4> kStages = {"initialisation", "intersection", "iteration",
                                                     "point_rays"};

// Headers that know nobody but text/ and that everybody may include.
constexpr std::array<std::string_view, 2> kLeaves = {"driver/keywords.h", "geometry/units.h"};

// Knots: headers cut them by forward declarations, sources tie them again. A source of the layer
// may include the header although it lies above.
struct Knot {
  std::string_view layer;
  std::string_view header;
};
constexpr std::array<Knot, 6> kKnots = {{
    {"geometry", "calibration/corrections.h"},  // an orientation and its corrections
    {"sensors", "calibration/ap_set.h"},        // a camera and its sets
    {"sensors", "calibration/corrections.h"},   // an image and the corrections of its orientation
    {"calibration", "driver/options.h"},        // the size of a set's grid of effects
    {"lsq stages", "driver/bundle_project.h"},  // operations of the project
    {"report", "driver/bundle_project.h"},      // likewise
}};

bool is_leaf(std::string_view file) {
  return std::find(kLeaves.begin(), kLeaves.end(), file) != kLeaves.end();
}

std::string layer_of(const fs::path& file) {
  const std::string folder = file.begin()->string();
  if (folder != "lsq") return folder;
  const std::string name = file.filename().string();
  const bool stage = std::any_of(kStages.begin(), kStages.end(),
                                 [&](std::string_view stem) { return name.starts_with(stem); });
  return stage ? "lsq stages" : "lsq engine";
}

// -1 for a folder that the table does not know.
std::ptrdiff_t rank_of(std::string_view layer) {
  const auto found = std::find(kLayers.begin(), kLayers.end(), layer);
  return found == kLayers.end() ? -1 : found - kLayers.begin();
}

bool may_include(const fs::path& file, const std::string& header) {
  if (is_leaf(header)) return true;
  const std::string from = layer_of(file);
  const std::string to = layer_of(header);
  if (is_leaf(file.generic_string())) return to == "text";
  if (rank_of(from) >= 0 && rank_of(to) >= 0 && rank_of(to) <= rank_of(from)) return true;
  return file.extension() == ".cpp" &&
         std::any_of(kKnots.begin(), kKnots.end(),
                     [&](const Knot& knot) { return knot.layer == from && knot.header == header; });
}

std::vector<std::string> project_includes(const fs::path& file) {
  constexpr std::string_view kStart = "#include \"";
  std::vector<std::string> headers;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with(kStart)) continue;
    headers.push_back(line.substr(kStart.size(), line.rfind('"') - kStart.size()));
  }
  return headers;
}

// `root` holds folders named after layers; `file` is a source in one of them. The public header is
// everybody's, a name without a folder is a neighbour.
void check_file(const fs::path& root, const fs::path& file) {
  for (const std::string& header : project_includes(root / file)) {
    if (header == "vorn/vorn.h" || header.find('/') == std::string::npos) continue;
    EXPECT_TRUE(may_include(file, header)) << file.generic_string() << " includes " << header;
  }
}

TEST(Layering, RulesTellUpFromDown) {
  EXPECT_TRUE(may_include("sensors/camera.h", "geometry/image_geometry.h"));
  EXPECT_TRUE(may_include("lsq/iteration.cpp", "sensors/bundle_image.h"));
  EXPECT_TRUE(may_include("lsq/iteration.cpp", "driver/bundle_project.h"));
  EXPECT_TRUE(may_include("lsq/ls_params.h", "geometry/units.h"));
  EXPECT_FALSE(may_include("lsq/normal_matrix.cpp", "sensors/bundle_image.h"));
  EXPECT_FALSE(may_include("lsq/iteration.h", "driver/bundle_project.h"));
  EXPECT_FALSE(may_include("geometry/units.h", "lsq/matrix.h"));
  EXPECT_FALSE(may_include("text/token_reader.h", "misc/anything.h"));
}

TEST(Layering, SourcesIncludeDownwards) {
  const fs::path source_dir = VORN_SOURCE_DIR;
  int files = 0;
  for (const fs::path& root : {source_dir / "src", source_dir}) {
    for (const std::string_view folder :
         {"text", "lsq", "geometry", "sensors", "calibration", "report", "driver", "app"}) {
      if (!fs::is_directory(root / folder)) continue;
      for (const auto& entry : fs::directory_iterator(root / folder)) {
        const auto extension = entry.path().extension();
        if (extension != ".h" && extension != ".cpp") continue;
        check_file(root, fs::relative(entry.path(), root));
        ++files;
      }
    }
  }
  EXPECT_GT(files, 20) << "the sources were not found in " << source_dir;
}

}  // namespace
