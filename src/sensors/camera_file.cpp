#include <memory>
#include <utility>

#include "driver/keywords.h"
#include "sensors/camera.h"
#include "sensors/camera_ccd.h"
#include "sensors/camera_pushbroom.h"

namespace vorn {

namespace {

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
  std::string_view word;
  while (in.read_word(word)) {
    const Keyword keyword = lookup_keyword(word);
    if (keyword == Keyword::stop_dep) return 1;
    std::unique_ptr<Camera> camera = make_camera(keyword);
    if (!camera) {
      standard_output() << "ERROR: Unknown camera type: " << word << '\n';
      return -1;
    }
    if (camera->read(in) != 1) {
      standard_output() << "ERROR: Reading camera " << camera->id << " failed.\n";
      return -1;
    }
    // Only one and the same object would count as present already, and each record makes a new one:
    // records with equal identifiers all stay, and look-ups find the first.
    cameras.append(std::move(camera));
  }
  return 1;
}

}  // namespace vorn
