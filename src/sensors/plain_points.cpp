#include "sensors/plain_points.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/workers.h"
#include "text/blanks.h"
#include "text/records.h"

namespace vorn {
namespace {

constexpr std::size_t kTextPerRange = std::size_t{1} << 16U;

// What a range of lines came to.
struct Lines {
  enum class Ending { lines, end_word, other };
  Ending ending = Ending::lines;
  std::string_view end_word;
  std::vector<PlainPoints::Record> records;
};

// A number up to the end of its word.
bool read_number(TokenReader& in, double& value) {
  return in.read(value) && (in.rest().empty() || is_blank(in.rest().front()));
}

// Reads the record of a line behind its identifier. Standard deviations that cannot be are for
// those who say so.
bool read_record(TokenReader& in, const Vec3* common_std_devs, ObjectPoint& point) {
  for (double& coordinate : point.xyz) {
    if (!read_number(in, coordinate)) return false;
  }
  if (common_std_devs != nullptr) {
    point.std_devs = *common_std_devs;
  } else {
    for (double& sigma : point.std_devs) {
      if (!read_number(in, sigma) || sigma < 0.0) return false;
    }
  }
  point.has_coords = true;
  point.classify();
  return in.only_blanks_left();
}

void read_lines(std::string_view text, const Vec3* common_std_devs, Lines& range) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    TokenReader in(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    std::string_view id;
    if (!in.read_word(id)) continue;
    if (is_end_word(id, EndWords::keyword_or_minus_one)) {
      range.ending = Lines::Ending::end_word;
      range.end_word = id;
      return;
    }
    auto point = std::make_unique<ObjectPoint>();
    if (!read_record(in, common_std_devs, *point)) {
      range.ending = Lines::Ending::other;
      return;
    }
    point->id = id;
    range.records.push_back({id, std::move(point)});
  }
}

}  // namespace

std::optional<PlainPoints> read_plain_points(std::string_view text, const Vec3* common_std_devs) {
  // What is left of the head's line is no line of the list.
  if (!TokenReader(text.substr(0, text.find('\n'))).only_blanks_left()) return {};
  std::vector<Lines> ranges((text.size() + kTextPerRange - 1) / kTextPerRange);
  // The lines that begin in a part of the text make up its range. A line that passes through a part
  // is looked at by the one that it begins in alone.
  for_each_range(text.size(), kTextPerRange, [&](std::size_t begin, std::size_t end, std::size_t) {
    std::size_t first = 0;
    if (begin > 0) {
      const std::size_t line_end = text.substr(0, end - 1).find('\n', begin - 1);
      if (line_end == std::string_view::npos) return;
      first = line_end + 1;
    }
    const std::size_t stop = std::min(text.find('\n', end - 1), text.size() - 1) + 1;
    read_lines(text.substr(first, stop - first), common_std_devs, ranges[begin / kTextPerRange]);
  });
  PlainPoints points;
  for (Lines& range : ranges) {
    if (range.ending == Lines::Ending::other) return {};
    points.ranges.push_back(std::move(range.records));
    points.end_word = range.end_word;
    if (range.ending == Lines::Ending::end_word) return points;
  }
  return {};
}

}  // namespace vorn
