#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vorn::app {

// Columns of many numbers as the page takes them: the bytes of little-endian numbers as base64 (RFC
// 4648).
[[nodiscard]] std::string base64(std::span<const std::uint8_t> bytes);
// 32-bit floats; what is not finite becomes NaN.
[[nodiscard]] std::string packed_floats(std::span<const double> values);
// 16-bit integers n with value = scale * n; -32768 stands for what is not finite. `scale` is chosen
// so that the largest value fits.
[[nodiscard]] std::string packed_shorts(std::span<const double> values, double& scale);

}  // namespace vorn::app
