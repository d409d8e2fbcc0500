// What the processor and its memory give at best, on one thread: the limits that the stages of an
// iteration are held against.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "lsq/linalg/kernels.h"

namespace {

// Multiplications and additions of numbers that stay in the first cache.
void tiles_in_first_cache(benchmark::State& state) {
  constexpr std::int32_t kTile = 24;
  const std::vector<double> a(kTile * kTile, 1e-3);
  const std::vector<double> b(kTile * kTile, 1e-3);
  std::vector<double> c(kTile * kTile, 1.0);
  for (auto _ : state) {
    vorn::kernels().multiply_subtract(c.data(), a.data(), b.data(), kTile, kTile, kTile);
    benchmark::ClobberMemory();
  }
  state.SetLabel(vorn::kernels().name);
  state.counters["flop/s"] = benchmark::Counter(2.0 * kTile * kTile * kTile,
                                                benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(tiles_in_first_cache);

// Arrays that no cache holds, read once from end to end.
void read_memory(benchmark::State& state) {
  constexpr std::int64_t kNumbers = std::int64_t{16} << 20U;
  const std::vector<double> a(kNumbers, 1.0);
  const std::vector<double> b(kNumbers, 1.0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(vorn::kernels().dot(a.data(), b.data(), kNumbers));
  }
  state.SetBytesProcessed(2 * kNumbers * std::int64_t{sizeof(double)} * state.iterations());
}
BENCHMARK(read_memory)->Unit(benchmark::kMillisecond);

}  // namespace
