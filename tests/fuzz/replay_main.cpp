// replay TARGET FILE_OR_DIRECTORY...: runs a fuzz target once for each file, without libFuzzer.
// replay DIRECTORY: does so for every folder of the directory; its name is that of the target.

#include <cstdio>
#include <filesystem>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

void replay(const std::string& name, const fs::path& path, int& count) {
  if (fs::is_directory(path)) {
    for (const auto& entry : fs::directory_iterator(path)) replay(name, entry.path(), count);
    return;
  }
  const vorn::fuzz::FuzzTarget* const target = vorn::fuzz::find_target(name);
  vorn::fuzz::require(target != nullptr, "the target exists");
  std::fprintf(stderr, "%s %s\n", name.c_str(), path.filename().string().c_str());
  // Memory of exactly this size, so that a sanitizer sees a read behind the end.
  const std::string text = vorn::test::file_text(path);
  const std::vector<char> exact(text.begin(), text.end());
  target->run({exact.data(), exact.size()});
  ++count;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  if (argc == 2) {
    for (const auto& entry : fs::directory_iterator(argv[1])) {
      replay(entry.path().filename().string(), entry.path(), count);
    }
  }
  for (int i = 2; i < argc; ++i) replay(argv[1], argv[i], count);
  std::fprintf(stderr, "%d inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
