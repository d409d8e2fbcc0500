// Image file and image-coordinates file.

#include <memory>
#include <utility>

#include "driver/keywords.h"
#include "sensors/bundle_image.h"
#include "text/text_writer.h"

namespace vorn {

int read_image_file(TokenReader& in, OwnedList<BundleImage>& images,
                    const OwnedList<Camera>& cameras) {
  std::string_view word;
  while (in.read_word(word)) {
    const Keyword keyword = lookup_keyword(word);
    if (keyword == Keyword::stop_dep) return 1;
    if (keyword != Keyword::image_frame) {
      standard_output() << "ERROR: Unknown image type: " << word << '\n';
      return -1;
    }
    auto image = std::make_unique<BundleImage>();
    if (image->read(in, cameras) != 1) {
      standard_output() << "ERROR: Reading image " << image->id << " failed.\n";
      return -1;
    }
    // As with cameras, records with equal identifiers all stay, and look-ups find the first.
    images.append(std::move(image));
  }
  return 1;
}

int read_image_crds_file(TokenReader& in, const OwnedList<BundleImage>& images) {
  std::string_view word;
  while (in.read_word(word)) {
    if (word == "stop-dep" || word == "-1") return 1;
    BundleImage* image = images.find(word);
    if (image == nullptr) {
      standard_output() << "ERROR: BundleImage " << word << " not found.\n";
      return -1;
    }
    if (!image->camera->read_image_coords(in, *image)) {
      standard_output() << "ERROR: BundleImage " << word << " read image coords. failed.\n";
      return -1;
    }
  }
  return 1;
}

}  // namespace vorn
