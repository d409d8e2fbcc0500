// Image file and image-coordinates file.

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "sensors/blocks_ahead.h"
#include "sensors/bundle_image.h"
#include "sensors/camera.h"
#include "sensors/point_share.h"
#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {

namespace {

constexpr std::size_t kWordsPerHead = 2;  // of a block: the image and the scale factor

// Behind the name of an image that does not exist, when the listener wants what follows: passes
// over the block, or reads it for its mistakes where images are known to be lacking.
bool pass_over_block(TokenReader& in, std::string_view image_id) {
  if (!in.goes_on()) return false;
  in.pass_over_record();
  if (!has_reason_to_report(in, "image")) {
    report_broken_lines(in, kWordsPerImagePoint, "point", [](std::string_view) { return false; });
    BundleImage unknown;
    unknown.id = image_id;
    return Camera().read_image_coords(in, unknown);
  }
  std::string_view word;
  while (in.read_word(word) && !is_end_word(word, EndWords::keyword_or_minus_one)) {
  }
  return true;
}

// Reads a block behind its head.
bool read_block(TokenReader& in, BundleImage& image, const OwnedList<BundleImage>& images) {
  in.begin_record({"image", in.last_word()});
  report_broken_lines(in, kWordsPerImagePoint, "point",
                      [&](std::string_view id) { return images.find(id) != nullptr; });
  return image.camera->read_image_coords(in, image);
}

}  // namespace

int read_image_file(TokenReader& in, OwnedList<BundleImage>& images,
                    const OwnedList<Camera>& cameras) {
  return read_records(
      in, EndWords::keyword,
      [&](std::string_view word) {
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
      },
      begins_with_keyword);
}

int read_image_crds_file(TokenReader& in, const OwnedList<BundleImage>& images) {
  if (PointShare* const share = point_share()) share->meet(images);
  BlocksAhead ahead(in, images, read_block);
  const auto read_next = [&](std::string_view word) {
    BundleImage* const image = images.find(word);
    if (image == nullptr) {
      in.begin_record({"image", word});
      report_unknown_reference(in, word, "image", "image", images);
      if (pass_over_block(in, word)) return 1;
      return reading_failed("ERROR: BundleImage ", word, " not found.\n");
    }
    const std::string_view end_word = ahead.take(word, *image);
    if (!end_word.empty()) {
      in.remember(image, word, place_of::kMeasurements);
      in.pass(end_word);
    } else if (!read_block(in, *image, images)) {
      return reading_failed("ERROR: BundleImage ", word, " read image coords. failed.\n");
    }
    return 1;
  };
  return read_records(in, EndWords::keyword_or_minus_one, read_next,
                      [&](std::string_view record, std::string_view next) {
                        return images.find(next) != nullptr ||
                               may_begin_record(in, record, next, kWordsPerHead);
                      });
}

}  // namespace vorn
