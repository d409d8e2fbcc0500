#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "text/output_files.h"

namespace vorn::exchange {

// A file of another format, one of those that are written together. Real numbers are written with
// all their digits, binary numbers with the lowest byte first. What goes wrong is told when all
// files are finished.
class OutputFile {
 public:
  OutputFile(OutputFiles& outputs, const std::string& path);

  OutputFile& operator<<(std::string_view text) {
    out_ << text;
    return *this;
  }
  OutputFile& operator<<(char c) {
    out_ << c;
    return *this;
  }
  OutputFile& operator<<(double value) {
    out_ << shortest()(value);
    return *this;
  }
  template <class Int>
  requires std::is_integral_v<Int> OutputFile& operator<<(Int value) {
    out_ << value;
    return *this;
  }

  template <class Int>
  requires std::is_integral_v<Int> OutputFile& bytes_of(Int value) {
    auto bits = static_cast<std::make_unsigned_t<Int>>(value);
    for (std::size_t i = 0; i < sizeof(Int); ++i) {
      out_ << static_cast<char>(bits & 0xFFU);
      if constexpr (sizeof(Int) > 1) bits = static_cast<decltype(bits)>(bits >> 8U);
    }
    return *this;
  }
  OutputFile& bytes_of(double value);

 private:
  TextWriter& out_;
};

// Finishes the files, which replace earlier ones together. Throws ExchangeError with the first that
// cannot be written; earlier ones are as they were then.
void finish(OutputFiles& outputs);

// Throws ExchangeError where one of the files would replace a file of the project, its results
// included, or stands for something else than a file.
void keep_project(const std::string& control_file, const std::vector<std::string>& files);

}  // namespace vorn::exchange
