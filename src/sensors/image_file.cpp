// Image file and image-coordinates file.

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "sensors/bundle_image.h"
#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {

int read_image_file(TokenReader& in, OwnedList<BundleImage>& images,
                    const OwnedList<Camera>& cameras) {
  return read_records(in, EndWords::keyword, [&](std::string_view word) {
    in.begin_record({"image"});
    if (lookup_keyword(word) != Keyword::image_frame) {
      constexpr std::array<std::string_view, 1> kImageTypes = {"image-frame"};
      report_unknown_word(in, word, "image type", kImageTypes);
      return reading_failed("ERROR: Unknown image type: ", word, '\n');
    }
    auto image = std::make_unique<BundleImage>();
    if (image->read(in, cameras) != 1) {
      return reading_failed("ERROR: Reading image ", image->id, " failed.\n");
    }
    // As with cameras, records with equal identifiers all stay, and look-ups find the first.
    const BundleImage* const earlier = in.listens() ? images.find(image->id) : nullptr;
    if (earlier != nullptr) {
      report_duplicate(in, earlier, "measurements go to the first one");
    }
    images.append(std::move(image));
    return 1;
  });
}

int read_image_crds_file(TokenReader& in, const OwnedList<BundleImage>& images) {
  return read_records(in, EndWords::keyword_or_minus_one, [&](std::string_view word) {
    BundleImage* const image = images.find(word);
    if (image == nullptr) {
      in.begin_record({"image", word});
      report_unknown_reference(in, word, "an image", images);
      return reading_failed("ERROR: BundleImage ", word, " not found.\n");
    }
    constexpr std::size_t kWordsPerPoint = 5;
    in.begin_record({"image", word});
    report_broken_lines(in, kWordsPerPoint, "point",
                        [&](std::string_view id) { return images.find(id) != nullptr; });
    if (!image->camera->read_image_coords(in, *image)) {
      return reading_failed("ERROR: BundleImage ", word, " read image coords. failed.\n");
    }
    return 1;
  });
}

}  // namespace vorn
