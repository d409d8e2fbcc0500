#pragma once

#include <cstdint>

#include "sensors/camera.h"

namespace vorn {

// Frame camera measured in pixels (column, row) of a CCD array; pixel origin at the top-left
// corner, columns to the right, rows downwards. Image coordinates have their origin at the array
// centre.
class CameraCCD : public Camera {
 public:
  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;
  std::string_view get_type_name() const override { return "CCD-frame"; }
  std::string_view get_coord_system_name() const override { return "pixel (top-left)"; }
  Pair pixel_to_image(const Pair& measured) const override;
  Pair image_to_pixel(const Pair& image) const override;
  Pair sdev_to_image(const Pair& sdev) const override;
  void print_image_coords(TextWriter& out, const BundleImage& image) const override;

  std::int32_t nc = 0;  // pixel columns and rows
  std::int32_t nr = 0;
  double pc = 0;  // pixel spacing along a row and along a column [m]
  double pr = 0;
  double c0 = 0;  // column and row of the origin of image coordinates [pixels]
  double r0 = 0;
};

// The same array turned by a quarter turn: pixel origin at the top-right corner, rows to the left.
// It reports the coordinate system of the top-left array.
class CameraCCDTR : public CameraCCD {
 public:
  int read(TokenReader& in) override;
  std::string_view get_type_name() const override { return "CCD-frame (top-right)"; }
  Pair pixel_to_image(const Pair& measured) const override;
  Pair image_to_pixel(const Pair& image) const override;
  Pair sdev_to_image(const Pair& sdev) const override;
};

// Pixel coordinate of the centre of n pixels; defined for every n, negative ones included.
inline double array_centre(std::int32_t n) {
  return static_cast<double>(std::int64_t{n} - 1) * 0.5;
}

}  // namespace vorn
