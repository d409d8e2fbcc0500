#pragma once

#include <algorithm>
#include <cmath>
#include <regex>
#include <sstream>
#include <string>

namespace vorn::test {

// Whether two lines agree: the same text, and numbers in the same columns with as many decimals,
// that differ by two units of their last digit at most, or by 1e-8 of their value.
inline bool same_line(const std::string& a, const std::string& b) {
  static const std::regex kNumber(" *-?[0-9]+\\.([0-9]+)(?:e([-+][0-9]+))?");
  if (a.size() != b.size()) return false;
  if (std::regex_replace(a, kNumber, "#") != std::regex_replace(b, kNumber, "#")) return false;
  const auto last_digit = [](const std::smatch& match) {
    const double exponent = match[2].matched ? std::stod(match[2].str()) : 0.0;
    return std::pow(10.0, exponent - static_cast<double>(match.length(1)));
  };
  std::sregex_iterator at_b(b.begin(), b.end(), kNumber);
  for (std::sregex_iterator at_a(a.begin(), a.end(), kNumber), end; at_a != end; ++at_a, ++at_b) {
    if (at_a->position() != at_b->position() || at_a->length() != at_b->length()) return false;
    if (at_a->length(1) != at_b->length(1)) return false;
    const double value = std::stod(at_a->str());
    const double digit = std::max(last_digit(*at_a), last_digit(*at_b));
    const double tolerance = std::max(2.001 * digit, 1e-8 * std::fabs(value));
    // Negated, so that numbers that are none differ.
    if (!(std::fabs(value - std::stod(at_b->str())) <= tolerance)) return false;
  }
  return true;
}

// The first line in which two texts differ, or nothing.
inline std::string first_difference(const std::string& actual, const std::string& expected) {
  std::istringstream lines_a(actual);
  std::istringstream lines_b(expected);
  for (int number = 1;; ++number) {
    std::string a;
    std::string b;
    const bool more_a = !!std::getline(lines_a, a);
    const bool more_b = !!std::getline(lines_b, b);
    if (!more_a && !more_b) return {};
    if (more_a != more_b || (a != b && !same_line(a, b))) {
      return "line " + std::to_string(number) + " is [" + a + "], expected [" + b + "]";
    }
  }
}

}  // namespace vorn::test
