#include "app/exchange/output_file.h"

#include <bit>
#include <filesystem>
#include <system_error>

#include "app/exchange/source.h"
#include "driver/output_guard.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace vorn::exchange {

OutputFile::OutputFile(OutputFiles& outputs, const std::string& path) : out_(outputs.open(path)) {
#ifdef _WIN32
  // The same bytes everywhere.
  if (out_.is_open()) _setmode(descriptor_of(out_.stream()), _O_BINARY);
#endif
}

OutputFile& OutputFile::bytes_of(double value) {
  return bytes_of(std::bit_cast<std::uint64_t>(value));
}

void finish(OutputFiles& outputs) {
  if (outputs.commit()) return;
  const OutputFailure& failure = outputs.failures().front();
  throw ExchangeError(failure.path + ": " + failure.reason);
}

void keep_project(const std::string& control_file, const std::vector<std::string>& files) {
  namespace fs = std::filesystem;
  GuardRequest request{control_file};
  for (const std::string& file : files) {
    // Folders that are missing will have been made.
    std::error_code ignored;
    const fs::path full = fs::absolute(file, ignored);
    const fs::path folder = fs::weakly_canonical(full.parent_path(), ignored);
    request.more_outputs.push_back((folder / full.filename()).string());
  }
  const std::vector<Obstacle> obstacles = find_replaced_files(request);
  if (obstacles.empty()) return;
  const Obstacle& obstacle = obstacles.front();
  throw ExchangeError(std::string(text_of(obstacle.kind)) + ": " + obstacle.file);
}

}  // namespace vorn::exchange
