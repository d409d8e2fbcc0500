#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "base/dual.h"
#include "base/owned_list.h"
#include "base/row_pair.h"
#include "geometry/image_geometry.h"
#include "geometry/vec3.h"
#include "sensors/inner_orientation.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {

class APSet;
class BundleImage;

using Pair = std::array<double, 2>;

// Interior orientation of a frame camera and base of the camera family: principal distance,
// principal point, format, the additional-parameter sets bound to it, and its measuring coordinate
// system.
class Camera {
 public:
  Camera() = default;
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;

  virtual ~Camera() = default;
  // Reads the record body of the camera file. 1, or -1 as soon as anything cannot be read.
  [[nodiscard]] virtual int read(TokenReader& in);
  virtual void write(TextWriter& out) const;
  virtual void print(TextWriter& out) const;
  virtual std::string_view get_type_name() const { return "frame"; }
  virtual std::string_view get_coord_system_name() const { return "image"; }
  // Measured pair to image coordinates [m] and back.
  virtual Pair pixel_to_image(const Pair& measured) const { return measured; }
  virtual Pair image_to_pixel(const Pair& image) const { return image; }
  // Standard deviations of a measured pair in image units [m].
  virtual Pair sdev_to_image(const Pair& sdev) const { return sdev; }
  // Reads one image's block of image coordinates behind the image identifier.
  [[nodiscard]] virtual bool read_image_coords(TokenReader& in, BundleImage& image) const;
  virtual void write_image_coords(TextWriter& out, const BundleImage& image) const;
  virtual void print_image_coords(TextWriter& out, const BundleImage& image) const;

  InnerOrientation inner_orientation() const { return {c, xp, yp}; }
  // Sum of the corrections (dx, dy) of all sets at a reduced image point.
  Pair get_corrections(const Vec3& point) const;
  // Reduced, corrected camera vector (x, y, -c) of image coordinates.
  Vec3 image_to_camera(const Pair& image) const;
  // Image coordinates of a reduced point.
  Pair camera_to_image(const Vec3& point) const;
  // Image coordinates of a reduced point, as functions of its x and y; the derivatives with respect
  // to the parameters of all sets, one after the other, go into two rows.
  std::array<Dual<double>, 2> linearise(const Vec3& point, const RowPair<double*>& rows) const;
  // Fills one 2xn block per set at a reduced image point.
  // Each block gets its set's unknown number, too; a null set is reported on the error stream.
  void get_derivs(const Vec3& point, std::vector<DesignBlock>& blocks) const;

  std::string id;
  std::string comment;
  double c = 1.0;   // principal distance [m]
  double xp = 0.0;  // principal point [m]
  double yp = 0.0;
  double sx = 1.0;  // image format, width and height [m]
  double sy = 1.0;
  bool used = false;            // set when an image binds the camera
  std::vector<APSet*> ap_sets;  // in attachment order; not owned

 protected:
  // Reads what the records of all types begin with: identifier, comment, c and principal point
  // [mm].
  [[nodiscard]] bool read_head(TokenReader& in);
  // Writes the lines that the records of the result file begin with, format included.
  void write_head(TextWriter& out, std::string_view keyword) const;
  // Prints the points under a column header, their values multiplied by `factor`.
  void print_points(TextWriter& out, const BundleImage& image, std::string_view header,
                    double factor) const;
};

// Reads a camera file into the list. 1, also for an empty file; -1 with a message on standard
// output.
[[nodiscard]] int read_camera_file(TokenReader& in, OwnedList<Camera>& cameras);

}  // namespace vorn
