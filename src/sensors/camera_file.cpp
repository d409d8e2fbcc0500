#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "sensors/camera.h"
#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"
#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {

namespace {

constexpr std::array<std::string_view, 4> kCameraTypes = {"camera-frame", "camera-ccd",
                                                          "camera-ccd-tr", "camera-pushbroom"};

// Null for a keyword that names no camera type.
std::unique_ptr<Camera> make_camera(Keyword keyword) {
  switch (keyword) {
    case Keyword::camera_frame:
      return std::make_unique<Camera>();
    case Keyword::camera_ccd:
      return std::make_unique<CameraCCD>();
    case Keyword::camera_ccd_tr:
      return std::make_unique<CameraCCDTR>();
    case Keyword::camera_pushbroom:
      return std::make_unique<PBCamera>();
    default:
      return nullptr;
  }
}

// The comment is missing when numbers begin behind the identifier, one less than the record has
// with its comment: c and what follows would be taken one word too early.
void report_missing_comment(TokenReader& in, Keyword type) {
  if (!in.listens()) return;
  const bool line = type == Keyword::camera_pushbroom;
  const std::size_t values = type == Keyword::camera_frame ? 5 : line ? 6 : 7;
  TokenReader words(in.rest());
  std::string_view id;
  std::string_view first;
  std::string_view word;
  if (!words.read_word(id) || !words.read_word(first) || !is_number(first)) return;
  std::size_t numbers = 1;
  while (words.read_word(word) && is_number(word)) ++numbers;
  // The last value of a line camera may be left out at the end of the file only.
  if (numbers != values && !(line && numbers == values + 1 && words.ok())) return;
  in.begin_record({"camera", id});
  in.report(FindingCode::value_missing, first,
            "expected " + describe(in.subject(), "the comment") + ", found " + quoted(first),
            "write a word without blanks behind the identifier", "the comment");
  if (in.goes_on()) in.fail();
}

}  // namespace

int read_camera_file(TokenReader& in, OwnedList<Camera>& cameras) {
  return read_records(
      in, EndWords::keyword,
      [&](std::string_view word) {
        std::unique_ptr<Camera> camera = make_camera(lookup_keyword(word));
        in.begin_record({"camera"});
        if (!camera) {
          report_unknown_word(in, word, "camera type", kCameraTypes);
          return reading_failed("ERROR: Unknown camera type: ", word, '\n');
        }
        report_missing_comment(in, lookup_keyword(word));
        if (camera->read(in) != 1) {
          return reading_failed("ERROR: Reading camera ", camera->id, " failed.\n");
        }
        // Only one and the same object would count as present already, and each record makes a new
        // one: records with equal identifiers all stay, and look-ups find the first.
        const Camera* const earlier = in.listens() ? cameras.find(camera->id) : nullptr;
        if (earlier != nullptr) report_duplicate(in, earlier, "the first one counts");
        cameras.append(std::move(camera));
        return 1;
      },
      begins_with_keyword);
}

}  // namespace vorn
