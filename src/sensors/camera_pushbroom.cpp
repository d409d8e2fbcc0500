#include "sensors/camera_pushbroom.h"

#include <cmath>

namespace vorn {

namespace {

constexpr NumberFormat kPixelCount = general(10);
constexpr NumberFormat kLength = fixed(3, 10);

}  // namespace

int PBCamera::read(TokenReader& in) {
  if (!read_head(in)) return -1;
  if (!in.read(nc, {"nc", Range::positive})) return -1;
  if (!in.read(pc, {"pc", Range::positive})) return -1;
  in.remember(this, in.last_word(), place_of::kPixelSize);
  if (!in.read(pr, {"pr", Range::positive})) return -1;
  pc *= 1e-6;
  pr *= 1e-6;
  // The line position is optional: a record that lacks it keeps 0, and the file ends with it.
  in.read(x0, {"x0"});
  x0 *= 0.001;
  c0 = array_centre(nc);
  sx = nr * pr;
  sy = nc * pc;
  return 1;
}

void PBCamera::write(TextWriter& /*out*/) const {}

void PBCamera::print(TextWriter& out) const {
  Camera::print(out);
  out << "Number of pixels   :  nc = " << kPixelCount(nc) << '\n';
  out << "Pixel size         :  sc = " << kLength(pc * 1e6) << " um/pix  "
      << "sr = " << kLength(pr * 1e6) << " um/pix\n";
  out << "CCD line position  :  x0 = " << kLength(x0 * 1000) << " mm\n";
  out << '\n';
}

Pair PBCamera::pixel_to_image(const Pair& measured) const {
  // A row may lie beyond every integer type.
  const double line = std::trunc(measured[1] + 0.5);
  return {(measured[1] - line) * pr + x0, (measured[0] - c0) * pc};
}

Pair PBCamera::image_to_pixel(const Pair& image) const {
  return {image[1] / pc + c0, (image[0] - x0) / pr};
}

}  // namespace vorn
