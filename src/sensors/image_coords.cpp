// Blocks of measured image coordinates: reading, writing and printing by the camera that gives them
// their meaning.

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "sensors/bundle_image.h"
#include "sensors/camera.h"
#include "sensors/point_share.h"
#include "text/records.h"

namespace vorn {

namespace {

constexpr NumberFormat kCoordinate = fixed(4, 10);
constexpr NumberFormat kStdDev = fixed(4, 8);
constexpr NumberFormat kFactor = general();
constexpr int kIdWidth = 8;

constexpr Quantity kPoint[] = {{"x"}, {"y"}};
constexpr Quantity kPointStdDevs[] = {{"sx", Range::positive}, {"sy", Range::positive}};

// The running point was measured before in the block that begins at `block`. Where that was is
// looked for in the text, for the first few of an image.
void report_repeated_point(TokenReader& in, const char* block, int number) {
  const std::string_view id = in.subject().id;
  std::string message = describe(in.subject()) + " was measured before";
  TokenReader earlier({block, static_cast<std::size_t>(id.data() - block)});
  std::string_view word;
  double values[4];
  while (number < static_cast<int>(FindingList::kMaxAlike) && earlier.read_word(word)) {
    if (word == id) {
      message += ", in line " + std::to_string(in.place_of(word).line);
      break;
    }
    if (!earlier.read_pair(values[0], values[1], kPoint) ||
        !earlier.read_pair(values[2], values[3], kPointStdDevs)) {
      break;
    }
  }
  in.report(FindingCode::duplicate, id, message + "; the later measurement counts",
            "keep one of the two records");
}

// The head of a block stands alone in its line, and the next line is a whole point: true when the
// point is to be read, since the listener wants more.
bool report_missing_factor(TokenReader& in) {
  if (!in.listens()) return false;
  const std::string_view rest = in.rest();
  const std::size_t end = rest.find('\n');
  if (end == std::string_view::npos || rest.substr(0, end).find_first_not_of(" \t\r") < end) {
    return false;
  }
  TokenReader next(rest.substr(end, rest.find('\n', end + 1) - end));
  std::string_view word;
  std::string_view first;
  std::size_t count = 0;
  while (next.read_word(word)) {
    if (count++ == 0) first = word;
  }
  if (count != kWordsPerImagePoint) return false;
  in.report(FindingCode::value_missing, first,
            "the scale factor of " + describe(in.subject()) + " is missing before " + quoted(first),
            "write it behind the identifier of the image: 0.001 for mm, 1 for pixels");
  if (in.goes_on()) in.pass_over_record();
  return in.goes_on();
}

// Whether a record that is not to be read is the head of another block: two words on a line.
bool is_head(const TokenReader& in, std::string_view record) {
  if (!in.is_broken(record)) return false;
  const std::string_view text = in.text_from(record);
  TokenReader words(text.substr(0, text.find('\n')));
  std::string_view word;
  std::size_t count = 0;
  while (words.read_word(word)) ++count;
  return count == 2;
}

void put_point(TextWriter& out, const ImagePoint& point, double factor) {
  out << right_aligned(point.id, kIdWidth) << ' ' << kCoordinate(point.x * factor) << ' '
      << kCoordinate(point.y * factor) << ' ' << kStdDev(point.sx * factor) << ' '
      << kStdDev(point.sy * factor) << '\n';
}

}  // namespace

bool Camera::read_image_coords(TokenReader& in, BundleImage& image) const {
  double factor = 1.0;
  const std::string_view image_word = in.last_word();
  in.begin_record({"image", image_word});
  in.remember(&image, image_word, place_of::kMeasurements);
  const bool read_on = report_missing_factor(in);
  if (!read_on && !in.read(factor, {"the scale factor", Range::positive})) return false;
  const char* const block = in.rest().data();
  PointShare* const share = point_share();
  const bool remembers_points = in.listens() && in.listener()->remembers_image_points;
  int repeated = 0;
  const auto read_point = [&](std::string_view point_id) {
    in.begin_record({"image-point", point_id, image_word});
    auto point = std::make_unique<ImagePoint>();
    if (remembers_points) in.remember(point.get(), point_id);
    point->id = point_id;
    if (!in.read_pair(point->x, point->y, kPoint)) return -1;
    if (!in.read_pair(point->sx, point->sy, kPointStdDevs)) return -1;
    point->x *= factor;
    point->y *= factor;
    point->sx *= factor;
    point->sy *= factor;
    const bool added = share == nullptr ? image.insert_point(std::move(point))
                                        : share->insert(image, std::move(point));
    if (!added && in.listens()) report_repeated_point(in, block, repeated++);
    return 1;
  };
  const auto begins_point = [&](std::string_view record, std::string_view next) {
    // The next block stands where the end word of this one is missing.
    return !is_head(in, record) && may_begin_record(in, record, next, kWordsPerImagePoint);
  };
  const int read = read_records(in, EndWords::keyword_or_minus_one, read_point, begins_point);
  image.points.fit();
  return read == 1;
}

void Camera::write_image_coords(TextWriter& out, const BundleImage& image) const {
  // The values are multiplied by the factor that the line before them names, not divided by it.
  constexpr double kFileFactor = 1e-6;
  out << image.id << "   " << kFactor(kFileFactor) << '\n';
  for (const ImagePoint& point : image.points) put_point(out, point, kFileFactor);
  out << '\n';
}

void Camera::print_points(TextWriter& out, const BundleImage& image, std::string_view header,
                          double factor) const {
  out << "Number of points   :  " << image.count_points() << '\n';
  out << "Coord. system type :  " << get_coord_system_name() << "\n\n";
  out << header;
  for (const ImagePoint& point : image.points) put_point(out, point, factor);
  out << '\n';
}

void Camera::print_image_coords(TextWriter& out, const BundleImage& image) const {
  print_points(out, image, "      ID     x/mm       y/mm     sx/mm    sy/mm\n\n", 1000.0);
}

}  // namespace vorn
