#pragma once

#include <bit>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace vorn::exchange {

// A file of another format. Real numbers are written with all their digits, binary numbers with the
// lowest byte first.
class OutputFile {
 public:
  // Throws ExchangeError when the file cannot be opened, now or after the last write.
  explicit OutputFile(const std::string& path);
  void close();

  OutputFile& operator<<(std::string_view text) {
    buffer_ += text;
    return drained();
  }
  OutputFile& operator<<(char c) {
    buffer_ += c;
    return *this;
  }
  OutputFile& operator<<(double value);
  template <class Int>
  requires std::is_integral_v<Int> OutputFile& operator<<(Int value) {
    return *this << std::string_view(std::to_string(value));
  }

  template <class Int>
  requires std::is_integral_v<Int> OutputFile& bytes_of(Int value) {
    auto bits = static_cast<std::make_unsigned_t<Int>>(value);
    for (std::size_t i = 0; i < sizeof(Int); ++i) {
      buffer_ += static_cast<char>(bits & 0xFFU);
      if constexpr (sizeof(Int) > 1) bits = static_cast<decltype(bits)>(bits >> 8U);
    }
    return drained();
  }
  OutputFile& bytes_of(double value) { return bytes_of(std::bit_cast<std::uint64_t>(value)); }

 private:
  OutputFile& drained();

  std::string path_;
  std::ofstream stream_;
  std::string buffer_;
};

}  // namespace vorn::exchange
