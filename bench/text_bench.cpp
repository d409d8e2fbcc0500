// Reading and writing numbers as text.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text/number_format.h"
#include "text/token_reader.h"

namespace {

// Lines of an image-coordinates file: identifier, x, y, sx, sy.
std::string image_coordinates(int lines) {
  std::string text;
  char number[64];
  for (int i = 0; i < lines; ++i) {
    text += "pt" + std::to_string(1000 + i);
    for (const double value : {i * 0.0071, -i * 0.0037, 0.0005, 0.0005}) {
      text += ' ';
      text.append(number, vorn::write_number(number, value, vorn::fixed(6, 12)));
    }
    text += '\n';
  }
  return text;
}

void read_image_coordinates(benchmark::State& state) {
  constexpr int kLines = 10000;
  const std::string text = image_coordinates(kLines);
  for (auto _ : state) {
    vorn::TokenReader in(text);
    std::string_view id;
    double values[4] = {};
    double sum = 0.0;
    while (in.read_word(id)) {
      if (!in.read_pair(values[0], values[1]) || !in.read_pair(values[2], values[3])) break;
      sum += values[0];
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kLines);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(read_image_coordinates);

void write_numbers(benchmark::State& state, vorn::NumberFormat format) {
  std::vector<double> values;
  for (int i = 0; i < 1000; ++i) values.push_back((i - 500) * 1.2345678901);
  char out[512];
  for (auto _ : state) {
    for (const double value : values) {
      benchmark::DoNotOptimize(vorn::write_number(out, value, format));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(values.size()));
}
BENCHMARK_CAPTURE(write_numbers, fixed_3_10, vorn::fixed(3, 10));
BENCHMARK_CAPTURE(write_numbers, scientific_6_15, vorn::scientific(6, 15));
BENCHMARK_CAPTURE(write_numbers, general_6, vorn::general());

}  // namespace
