#include "app/report_page/packed_column.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <vector>

namespace vorn::app {
namespace {

void append(std::vector<std::uint8_t>& bytes, std::uint32_t value, int count) {
  for (int k = 0; k < count; ++k) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * k)));
}

}  // namespace

std::string base64(std::span<const std::uint8_t> bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t left = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t triple = 0;
    for (std::size_t k = 0; k < 3; ++k) triple = triple << 8 | (k < left ? bytes[i + k] : 0U);
    for (std::size_t k = 0; k < 4; ++k) {
      text += k <= left ? kDigits[triple >> (18 - 6 * k) & 63U] : '=';
    }
  }
  return text;
}

std::string packed_floats(std::span<const double> values) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(4 * values.size());
  for (const double value : values) {
    const bool fits = std::fabs(value) <= static_cast<double>(std::numeric_limits<float>::max());
    const float stored = fits ? static_cast<float>(value) : std::numeric_limits<float>::quiet_NaN();
    append(bytes, std::bit_cast<std::uint32_t>(stored), 4);
  }
  return base64(bytes);
}

std::string packed_shorts(std::span<const double> values, double& scale) {
  constexpr double kLargest = 32767.0;
  double largest = 0.0;
  for (const double value : values) {
    if (std::isfinite(value)) largest = std::max(largest, std::fabs(value));
  }
  scale = largest > 0.0 ? largest / kLargest : 1.0;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(2 * values.size());
  for (const double value : values) {
    const long stored = std::isfinite(value) ? std::lround(value / scale) : -32768;
    append(bytes, static_cast<std::uint32_t>(stored), 2);
  }
  return base64(bytes);
}

}  // namespace vorn::app
