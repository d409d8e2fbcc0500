#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "sensors/object_point.h"

namespace vorn {

// The object points of a list whose lines are one plain record each, as in nearly all files: an
// identifier and numbers that end with a blank or the line. All workers read them.
struct PlainPoints {
  struct Record {
    std::string_view id;  // in the text
    std::unique_ptr<ObjectPoint> point;
  };
  std::vector<std::vector<Record>> ranges;  // in the order of the text
  std::string_view end_word;
};

// Reads a text from behind the head of a list up to the line that begins with its end word.
// `common_std_devs` are those of all points; null where each record has its own. Nothing when a
// line is anything else, or the list has no end: whoever reads word by word knows what to say then.
std::optional<PlainPoints> read_plain_points(std::string_view text, const Vec3* common_std_devs);

}  // namespace vorn
