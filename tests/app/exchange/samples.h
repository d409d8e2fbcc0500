#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <sstream>
#include <string>

// Small reconstructions as other programs write them. The measurements are invented: what counts is
// that projections are taken over, not that they fit.

namespace vorn::test {

// Text with one part replaced.
inline std::string edited(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

inline constexpr const char* kColmapCameras =
    "# Camera list\n"
    "1 SIMPLE_RADIAL 640 480 500 320.25 240.5 -0.1\n"
    "2 OPENCV 800 600 700 710 401.5 299 -0.05 0.01 0.001 -0.002\n"
    "7 FULL_OPENCV 800 600 690 690 400 300 0.01 -0.02 0.0005 0.0003 0.004 0 0 0\n";

inline constexpr const char* kColmapImages =
    "# Image list with two lines of data per image:\n"
    "1 0.99 0.05 -0.08 0.02 0.3 -0.1 0.2 1 left view.jpg\n"
    "320 240 11 350.5 260.25 12 10 20 -1 300 200 13 330 280 14\n"
    "4 0.98 -0.04 0.1 -0.03 -0.5 0.2 0.1 2 night/r\xC3\xA9union.jpg\n"
    "380 310 11 420 330 12 350 280 13 400 350 14 381 311 11\n"
    "9 0.7 0.02 0.71 0.01 -4.5 0.1 5.5 7 top.jpg\n"
    "400 300 11 430 310 12 390 260 13 405 340 14 500 500 15\n";

inline constexpr const char* kColmapPoints =
    "# 3D point list\n"
    "11 0.1 0.2 5 128 127 126 0.5 1 0 4 0 4 4 9 0\n"
    "12 0.5 0.4 5.5 0 0 0 0.5 1 1 4 1 9 1\n"
    "13 -0.2 -0.3 4.8 0 0 0 0.5 1 3 4 2 9 2\n"
    "14 0.3 0.6 5.2 0 0 0 0.5 1 4 4 3 9 3\n"
    "15 1.3 1.6 5.2 0 0 0 -1 9 4\n";

inline constexpr const char* kBal =
    "2 3 6\n"
    "0 0 -30.5 40\n1 0 12 38\n0 1 55 -70\n1 1 80 -60\n0 2 5 6\n1 2 7 8\n"
    "0.01\n-0.02\n0.03\n0.1\n0.2\n-9\n500\n-0.1\n0.02\n"
    "-0.01\n0.12\n0.03\n-0.6\n0.2\n-9.5\n510\n-0.11\n0.01\n"
    "0.5\n1\n0\n-1\n1.5\n0.4\n0.2\n-0.7\n-0.3\n";

inline constexpr const char* kBundler =
    "# Bundle file v0.3\n3 3\n"
    "500 -0.1 0.02\n1 0 0\n0 1 0\n0 0 1\n0.1 0.2 -9\n"
    "0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n"
    "510 -0.11 0\n0.8 0 0.6\n0 1 0\n-0.6 0 0.8\n-0.6 0.2 -9.5\n"
    "0.5 1 0\n9 9 9\n3 0 7 -30.5 40 1 7 3 4 2 8 12 38\n"
    "-1 1.5 0.4\n9 9 9\n2 0 8 55 -70 2 9 80 -60\n"
    "0.2 -0.7 -0.3\n9 9 9\n2 0 9 5 6 2 1 7 8\n";

// Numbers as bytes, the lowest first.
class ByteWriter {
 public:
  template <class Int>
  ByteWriter& add(Int value) {
    auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(Int); ++i, bits >>= 8U) {
      bytes_.push_back(static_cast<char>(bits & 0xFFU));
    }
    return *this;
  }
  ByteWriter& add(double value) { return add(std::bit_cast<std::uint64_t>(value)); }
  ByteWriter& text(const std::string& value) {
    bytes_ += value + '\0';
    return *this;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

// The numbers of a text file of COLMAP as the binary form has them: calls `record` with the fields
// of each record, comments left out.
template <class Record>
void for_each_line(const std::string& text, Record record) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.front() != '#') record(std::istringstream(line));
  }
}
template <class T>
T next(std::istream& in) {
  T value{};
  in >> value;
  return value;
}

inline std::string binary_cameras() {
  ByteWriter out;
  out.add(std::uint64_t{3});
  for_each_line(kColmapCameras, [&](std::istringstream in) {
    out.add(next<std::uint32_t>(in));
    const auto model = next<std::string>(in);
    out.add(std::uint32_t{model == "OPENCV" ? 4U : model == "FULL_OPENCV" ? 6U : 2U});
    for (int i = 0; i < 2; ++i) out.add(next<std::uint64_t>(in));
    for (double value = 0; in >> value;) out.add(value);
  });
  return out.bytes();
}

inline std::string binary_images() {
  ByteWriter out;
  out.add(std::uint64_t{3});
  bool features = false;
  for_each_line(kColmapImages, [&](std::istringstream in) {
    if (features) {
      out.add(std::uint64_t{5});
      for (double x = 0; in >> x;) {
        out.add(x).add(next<double>(in)).add(static_cast<std::uint64_t>(next<std::int64_t>(in)));
      }
    } else {
      out.add(next<std::uint32_t>(in));
      for (int i = 0; i < 7; ++i) out.add(next<double>(in));
      out.add(next<std::uint32_t>(in));
      std::string name;
      std::getline(in >> std::ws, name);
      out.text(name);
    }
    features = !features;
  });
  return out.bytes();
}

inline std::string binary_points() {
  ByteWriter out;
  out.add(std::uint64_t{5});
  for_each_line(kColmapPoints, [&](std::istringstream in) {
    out.add(next<std::uint64_t>(in));
    for (int i = 0; i < 3; ++i) out.add(next<double>(in));
    for (int i = 0; i < 3; ++i) out.add(static_cast<std::uint8_t>(next<int>(in)));
    out.add(next<double>(in));
    ByteWriter track;
    std::uint64_t length = 0;
    for (std::uint32_t image = 0; in >> image; ++length) {
      track.add(image).add(next<std::uint32_t>(in));
    }
    out.add(length);
    for (const char c : track.bytes()) out.add(static_cast<std::uint8_t>(c));
  });
  return out.bytes();
}

}  // namespace vorn::test
