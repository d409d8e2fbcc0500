#pragma once

#include "sensors/camera_ccd.h"

namespace vorn {

// Line camera: a single CCD line across the flight direction records one image line per time step.
// A point is measured as (column, row); the column lies along the CCD line, the row counts the
// lines. The number of rows is not known to the camera: nr and r0 stay 0, and so does the format's
// width.
class PBCamera : public CameraCCD {
 public:
  int read(TokenReader& in) override;
  // A line camera has no record in the camera result file.
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;
  std::string_view get_type_name() const override { return "pushbroom"; }
  // Of the row only its offset from the nearest whole line counts; the way back gives that offset.
  Pair pixel_to_image(const Pair& measured) const override;
  Pair image_to_pixel(const Pair& image) const override;

  double x0 = 0;  // offset of the CCD line from the principal point in flight direction [m]
};

}  // namespace vorn
