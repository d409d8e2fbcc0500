#include "sensors/camera_ccd.h"

#include <utility>

namespace vorn {

namespace {

constexpr NumberFormat kPixelCount = general(10);
constexpr NumberFormat kPixels = fixed(3, 10);
constexpr NumberFormat kSpacing = fixed(3, 10);
constexpr NumberFormat kFileSpacing = fixed(3, 6);

}  // namespace

int CameraCCD::read(TokenReader& in) {
  if (!read_head(in)) return -1;
  if (!in.read(nc, {"nc", Range::positive}) || !in.read(nr, {"nr", Range::positive})) return -1;
  if (!in.read(pc, {"pc", Range::positive})) return -1;
  in.remember(this, in.last_word(), place_of::kPixelSize);
  if (!in.read(pr, {"pr", Range::positive})) return -1;
  pc *= 1e-6;
  pr *= 1e-6;
  c0 = array_centre(nc);
  r0 = array_centre(nr);
  sx = pc * nc;
  sy = pr * nr;
  return 1;
}

void CameraCCD::write(TextWriter& out) const {
  write_head(out, "ccd-frame");
  out << nc << ' ' << nr << '\n';
  out << kFileSpacing(pc * 1e6) << ' ' << kFileSpacing(pr * 1e6) << '\n';
}

void CameraCCD::print(TextWriter& out) const {
  Camera::print(out);
  out << "Number of pixel    :  nc = " << kPixelCount(nc) << " pix     "
      << "nr = " << kPixelCount(nr) << " pix\n";
  out << "ICS location       :  c0 = " << kPixels(c0) << " pix     "
      << "r0 = " << kPixels(r0) << " pix\n";
  out << "Pixel spacing      :  sc = " << kSpacing(pc * 1e6) << " um/pix  "
      << "sr = " << kSpacing(pr * 1e6) << " um/pix\n";
  out << '\n';
}

Pair CameraCCD::pixel_to_image(const Pair& measured) const {
  return {(measured[0] - c0) * pc, -((measured[1] - r0) * pr)};
}

Pair CameraCCD::image_to_pixel(const Pair& image) const {
  return {image[0] / pc + c0, r0 - image[1] / pr};
}

Pair CameraCCD::sdev_to_image(const Pair& sdev) const { return {pc * sdev[0], pr * sdev[1]}; }

void CameraCCD::print_image_coords(TextWriter& out, const BundleImage& image) const {
  print_points(out, image, "      ID     x/pix      y/pix    sx/pix   sy/pix\n\n", 1.0);
}

int CameraCCDTR::read(TokenReader& in) {
  if (CameraCCD::read(in) != 1) return -1;
  std::swap(sx, sy);
  return 1;
}

Pair CameraCCDTR::pixel_to_image(const Pair& measured) const {
  return {-((measured[1] - r0) * pr), -((measured[0] - c0) * pc)};
}

Pair CameraCCDTR::image_to_pixel(const Pair& image) const {
  return {c0 - image[1] / pc, r0 - image[0] / pr};
}

Pair CameraCCDTR::sdev_to_image(const Pair& sdev) const { return {pr * sdev[0], pc * sdev[1]}; }

}  // namespace vorn
