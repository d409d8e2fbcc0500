#include "app/exchange/output_file.h"

#include "app/exchange/source.h"
#include "text/number_format.h"

namespace vorn::exchange {

OutputFile::OutputFile(const std::string& path) : path_(path), stream_(path, std::ios::binary) {
  if (!stream_) throw ExchangeError(path + ": cannot be written");
}

void OutputFile::close() {
  stream_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  buffer_.clear();
  stream_.close();
  if (!stream_) throw ExchangeError(path_ + ": cannot be written to its end");
}

OutputFile& OutputFile::operator<<(double value) {
  char text[64];
  char* const end = write_number(text, value, shortest());
  buffer_.append(text, end);
  return *this;
}

OutputFile& OutputFile::drained() {
  constexpr std::size_t kFull = 1 << 16;
  if (buffer_.size() >= kFull) {
    stream_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    buffer_.clear();
  }
  return *this;
}

}  // namespace vorn::exchange
