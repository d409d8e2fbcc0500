// replay TARGET FILE_OR_DIRECTORY...: runs a fuzz target once for each file, without libFuzzer.
// replay DIRECTORY: does so for every folder of the directory; its name is that of the target.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// False for an unknown target.
bool replay(const std::string& name, const fs::path& path, std::size_t& count) {
  const vorn::fuzz::FuzzTarget* const target = vorn::fuzz::find_target(name);
  if (target == nullptr) {
    std::fprintf(stderr, "replay: no target '%s'\n", name.c_str());
    return false;
  }
  for (const fs::path& file : files_of(path)) {
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // Memory of exactly this size, so that a sanitizer sees a read behind the end.
    const std::unique_ptr<char[]> exact(new char[text.size()]);
    std::memcpy(exact.get(), text.data(), text.size());
    std::fprintf(stderr, "%s %s\n", name.c_str(), file.filename().string().c_str());
    target->run({exact.get(), text.size()});
    ++count;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  if (argc == 2) {
    for (const fs::directory_entry& entry : fs::directory_iterator(argv[1])) {
      if (entry.is_directory() && !replay(entry.path().filename().string(), entry.path(), count)) {
        return 1;
      }
    }
  }
  for (int i = 2; i < argc; ++i) {
    if (!replay(argv[1], argv[i], count)) return 1;
  }
  std::fprintf(stderr, "%zu inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
