#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "app/exchange/reconstruction.h"
#include "app/exchange/source.h"

namespace vorn::exchange {

using Json = nlohmann::json;

// A value of a JSON text, with where it ended.
class JsonItem {
 public:
  JsonItem(const Source& source, std::size_t offset, std::string label, const Json& value)
      : source_(&source), offset_(offset), label_(std::move(label)), value_(&value) {}

  const Json& value() const { return *value_; }
  std::size_t offset() const { return offset_; }
  [[noreturn]] void fail(const std::string& message) const {
    source_->fail(offset_, label_ + ": " + message);
  }
  bool has(const char* key) const { return value_->is_object() && value_->contains(key); }
  // Members of an object. Those that are missing or of another kind end in fail().
  JsonItem at(const char* key) const;
  std::string text(const char* key) const;
  double real(const char* key) const;
  double real_or(const char* key, double otherwise) const {
    return has(key) ? real(key) : otherwise;
  }
  std::uint32_t index(const char* key) const;
  std::int32_t size(const char* key) const;
  // An array of exactly N numbers, and of three such rows.
  template <std::size_t N>
  std::array<double, N> reals(const char* key) const {
    std::array<double, N> values{};
    read_reals(at(key).value(), values.data(), N, key);
    return values;
  }
  Mat3 matrix(const char* key) const;

 private:
  void read_reals(const Json& from, double* to, std::size_t count, const char* key) const;

  const Source* source_;
  std::size_t offset_;
  std::string label_;
  const Json* value_;
};

// Path to a value: names of members, numbers of elements.
using JsonPath = std::vector<std::string>;

// Reads a JSON text and hands every value at the given depth (the whole text has depth 0) to
// `visit`, which says whether it has dealt with it. Such values are freed at once, so that a text
// of any size takes the memory of one of them. Throws ExchangeError with the line where the text is
// no JSON.
void walk_json(const Source& source, std::size_t depth,
               const std::function<bool(const JsonPath& path, const JsonItem& item)>& visit);

}  // namespace vorn::exchange
