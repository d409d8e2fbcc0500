#include <array>
#include <memory>
#include <utility>

#include "sensors/camera.h"
#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"
#include "text/records.h"

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
