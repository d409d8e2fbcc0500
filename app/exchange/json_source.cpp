#ifdef VORN_WITH_JSON

#include "app/exchange/json_source.h"

#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

namespace vorn::exchange {
namespace {

// Reads characters and lets others know how far it has come.
class TrackedChar {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  TrackedChar(const char* at, const char** progress) : at_(at), progress_(progress) {}
  reference operator*() const { return *at_; }
  TrackedChar& operator++() {
    *progress_ = ++at_;
    return *this;
  }
  TrackedChar operator++(int) {
    TrackedChar before = *this;
    ++*this;
    return before;
  }
  bool operator==(const TrackedChar& other) const { return at_ == other.at_; }
  bool operator!=(const TrackedChar& other) const { return at_ != other.at_; }

 private:
  const char* at_;
  const char** progress_;
};

// Follows the events of the parser and knows the path of the value that they are about.
class PathTracker {
 public:
  void enter(bool is_array) { frames_.push_back({is_array, {}, 0}); }
  void leave() { frames_.pop_back(); }
  void set_key(std::string key) { frames_.back().key = std::move(key); }
  void count_element() {
    if (!frames_.empty() && frames_.back().is_array) ++frames_.back().index;
  }
  JsonPath path() const {
    JsonPath names;
    for (const Frame& frame : frames_) {
      names.push_back(frame.is_array ? std::to_string(frame.index) : frame.key);
    }
    return names;
  }
  std::size_t depth() const { return frames_.size(); }

 private:
  struct Frame {
    bool is_array;
    std::string key;
    std::size_t index;
  };
  std::vector<Frame> frames_;
};

std::string joined(const JsonPath& path) {
  std::string text;
  for (const std::string& name : path) text += (text.empty() ? "" : "/") + name;
  return text;
}

}  // namespace

JsonItem JsonItem::at(const char* key) const {
  if (!has(key)) fail(std::string("'") + key + "' is missing");
  return {*source_, offset_, label_, (*value_)[key]};
}

std::string JsonItem::text(const char* key) const {
  const Json& value = at(key).value();
  if (!value.is_string()) fail(std::string("'") + key + "' is no text");
  return value.get<std::string>();
}

double JsonItem::real(const char* key) const {
  double value = 0.0;
  read_reals(Json::array({at(key).value()}), &value, 1, key);
  return value;
}

std::uint32_t JsonItem::index(const char* key) const {
  const Json& value = at(key).value();
  if (!value.is_number_unsigned() ||
      value.get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
    fail(std::string("'") + key + "' is no index");
  }
  return value.get<std::uint32_t>();
}

std::int32_t JsonItem::size(const char* key) const {
  const std::uint32_t value = index(key);
  if (value == 0 || value > kMaxPixels) fail(std::string("'") + key + "' is no size of an image");
  return static_cast<std::int32_t>(value);
}

Mat3 JsonItem::matrix(const char* key) const {
  const Json& rows = at(key).value();
  if (!rows.is_array() || rows.size() != 3) fail(std::string("'") + key + "' is no matrix");
  Mat3 m{};
  for (std::size_t i = 0; i < 3; ++i) read_reals(rows[i], m[i].data(), 3, key);
  return m;
}

void JsonItem::read_reals(const Json& from, double* to, std::size_t count, const char* key) const {
  bool right = from.is_array() && from.size() == count;
  for (std::size_t i = 0; right && i < count; ++i) {
    right = from[i].is_number();
    if (right) to[i] = from[i].get<double>();
    right = right && std::isfinite(to[i]);
  }
  if (!right) fail(std::string("'") + key + "' is not " + std::to_string(count) + " numbers");
}

void walk_json(const Source& source, std::size_t depth,
               const std::function<bool(const JsonPath&, const JsonItem&)>& visit) {
  const std::string_view text = source.content();
  const char* progress = text.data();
  PathTracker tracker;
  // True when the parser may keep the value.
  const auto see = [&](const Json& value) {
    bool keep = true;
    if (tracker.depth() == depth) {
      const JsonPath path = tracker.path();
      keep = !visit(path, JsonItem(source, source.offset_of(progress), joined(path), value));
    }
    tracker.count_element();
    return keep;
  };
  const auto follow = [&](int, Json::parse_event_t event, Json& parsed) {
    using Event = Json::parse_event_t;
    switch (event) {
      case Event::object_start:
        tracker.enter(false);
        return true;
      case Event::array_start:
        tracker.enter(true);
        return true;
      case Event::key:
        tracker.set_key(parsed.get<std::string>());
        return true;
      case Event::object_end:
      case Event::array_end:
        tracker.leave();
        return see(parsed);
      case Event::value:
        return see(parsed);
    }
    return true;
  };
  try {
    const Json rest = Json::parse(TrackedChar(text.data(), &progress),
                                  TrackedChar(text.data() + text.size(), &progress), follow);
    if (depth == 0) return;
    if (!rest.is_structured()) source.fail(std::size_t{0}, "is no object or array");
  } catch (const Json::exception& error) {
    source.fail(progress, std::string("no valid JSON: ") + error.what());
  }
}

}  // namespace vorn::exchange

#endif  // VORN_WITH_JSON
