#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace vorn::test {

inline std::string file_text(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A directory of its own for one test. At its end the directory disappears and the current
// directory, which runs change, is what it was.
class TempDir {
 public:
  TempDir() {
    const std::string name = "vorn-test-" + std::to_string(std::random_device()());
    root_ = std::filesystem::canonical(std::filesystem::temp_directory_path()) / name;
    std::filesystem::create_directories(root_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(saved_, ignored);
    std::filesystem::remove_all(root_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path(std::string_view name = {}) const {
    return name.empty() ? root_.string() : (root_ / name).string();
  }
  // Writes a file, with the directories that lead to it, and returns its path.
  std::string write(std::string_view name, std::string_view text) const {
    const std::filesystem::path file = root_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file.string();
  }
  std::string read(std::string_view name) const { return file_text(root_ / name); }
  bool has(std::string_view name) const { return std::filesystem::exists(root_ / name); }

 private:
  std::filesystem::path saved_ = std::filesystem::current_path();
  std::filesystem::path root_;
};

}  // namespace vorn::test
