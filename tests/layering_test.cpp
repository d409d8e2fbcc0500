// Holds the include lines of the sources against the direction in which layers may depend.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

// From the bottom up: a folder includes itself and those before it.
const std::vector<std::string> kLayers = {"base",
                                          "text",
                                          "lsq/linalg",
                                          "lsq/normal",
                                          "lsq",
                                          "geometry",
                                          "sensors",
                                          "calibration",
                                          "lsq/stages",
                                          "report",
                                          "quality",
                                          "driver",
                                          "check",
                                          "session",
                                          "app/threads",
                                          "app/packed",
                                          "app/separators",
                                          "app/exchange",
                                          "app/exchange/geopackage",
                                          "app/json",
                                          "app/report_page",
                                          "app",
                                          "app/mpi"};

// Knots: headers cut them by forward declarations, sources tie them again. A source of the layer
// may include the header although it lies above.
const std::vector<std::pair<std::string, std::string>> kKnots = {
    {"geometry", "calibration/corrections.h"},     // an orientation and its corrections
    {"sensors", "calibration/ap_set.h"},           // a camera and its sets
    {"sensors", "calibration/camera_formulas.h"},  // likewise
    {"calibration", "driver/options.h"},           // the size of a set's grid of effects
    {"lsq/stages", "driver/bundle_project.h"},     // operations of the project
    {"report", "driver/bundle_project.h"},         // likewise
    {"quality", "driver/bundle_project.h"},        // what is judged is the project
};

std::ptrdiff_t index_of(const auto& value, const auto& list) {
  const auto found = std::find(list.begin(), list.end(), value);
  return found == list.end() ? -1 : found - list.begin();
}

// A layer is a folder.
std::string layer_of(const fs::path& file) { return file.parent_path().generic_string(); }

bool may_include(const fs::path& file, const std::string& header) {
  const std::string from = layer_of(file);
  const std::string to = layer_of(header);
  if (file.extension() == ".cpp" && index_of(std::pair(from, header), kKnots) >= 0) return true;
  return index_of(to, kLayers) >= 0 && index_of(to, kLayers) <= index_of(from, kLayers);
}

// The public header is everybody's, a name without a folder is a neighbour.
TEST(Layering, SourcesIncludeDownwards) {
  const fs::path source_dir = VORN_SOURCE_DIR;
  const std::string start = "#include \"";
  int upwards = 0;
  for (const fs::path& folder : {source_dir / "src", source_dir / "app", source_dir / "session"}) {
    const fs::path root = folder == source_dir / "src" ? folder : source_dir;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const fs::path file = fs::relative(entry.path(), root);
      std::ifstream in(entry.path());
      for (std::string line; std::getline(in, line);) {
        if (!line.starts_with(start)) continue;
        const std::string header = line.substr(start.size(), line.rfind('"') - start.size());
        if (header.starts_with("vorn/") || header.find('/') == std::string::npos) continue;
        EXPECT_TRUE(may_include(file, header)) << file.generic_string() << " includes " << header;
        upwards += may_include(header, file.generic_string()) ? 0 : 1;
      }
    }
  }
  EXPECT_GT(upwards, 50) << "the table tells up from down";
}

}  // namespace
