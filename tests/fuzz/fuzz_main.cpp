// With VORN_FUZZ_TARGET the entry point of that target's libFuzzer program, else a program that
// runs targets once for each file, without libFuzzer: replay TARGET FILE_OR_DIRECTORY... replay
// DIRECTORY: every folder of the directory; its name is that of the target.

#include <algorithm>
#include <filesystem>

#include "fuzz/fuzz_target.h"
#include "support/temp_dir.h"

namespace {

const vorn::fuzz::FuzzTarget& target_of(std::string_view name) {
  const auto& targets = vorn::fuzz::all_targets();
  const auto found = std::find_if(targets.begin(), targets.end(),
                                  [&](const auto& target) { return target.name == name; });
  vorn::fuzz::require(found != targets.end(), "the target exists");
  return *found;
}

}  // namespace

#ifdef VORN_FUZZ_TARGET

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const vorn::fuzz::FuzzTarget& target = target_of(VORN_FUZZ_TARGET);
  // An input that was not tried does not enter the corpus.
  return target.run({reinterpret_cast<const char*>(data), size}) ? 0 : -1;
}

#else

namespace fs = std::filesystem;

static void replay(const std::string& name, const fs::path& path, int& count) {
  if (fs::is_directory(path)) {
    for (const auto& entry : fs::directory_iterator(path)) replay(name, entry.path(), count);
    return;
  }
  std::fprintf(stderr, "%s %s\n", name.c_str(), path.filename().string().c_str());
  // Memory of exactly this size, so that a sanitizer sees a read behind the end.
  const std::string text = vorn::test::file_text(path);
  const std::vector<char> exact(text.begin(), text.end());
  target_of(name).run({exact.data(), exact.size()});
  ++count;
}

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

#endif
