#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "quality/results.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// An observation that an adjustment is to leave out: an image point (image and point), or the given
// value of a parameter (object type, object, parameter).
struct Exclusion {
  bool is_image_point = true;
  std::string object_type;  // of a parameter
  std::string object;       // image, or the object of a parameter
  std::string item;         // point, or parameter
};

// An exclusion list: records
//
//   image-point IMAGE POINT
//   parameter OBJECT_TYPE OBJECT PARAMETER
//
// up to "stop-dep" or the end, one in a line; a word that begins with # starts a comment. False,
// with `error` saying what is wrong and in which line, for anything else.
[[nodiscard]] bool read_exclusions(std::string_view text, std::vector<Exclusion>& exclusions,
                                   std::string& error);

// The same of a file.
[[nodiscard]] bool load_exclusions(const std::string& path, std::vector<Exclusion>& exclusions,
                                   std::string& error);

// Leaves the observations out of a project that was read and not yet initialised: takes the image
// points out of their images and frees the parameters. Lists what was done in the report; what the
// project does not have is reported there and passed over. Returns how many were left out.
std::int64_t apply_exclusions(const std::vector<Exclusion>& exclusions, BundleProject& project,
                              TextWriter& report);

// Writes the list that results suggest: observations whose test fails at 0.05 / number of tests and
// that are the worst of their image and of their point. Where the global test fails because
// residuals are too large, tests refer to sigma 0 a posteriori.
void write_suggested_exclusions(TextWriter& out, const QualityResults& results);

}  // namespace vorn
