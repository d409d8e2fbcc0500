#pragma once

#include <cstdint>

#include "base/owned_list.h"
#include "geometry/image_geometry.h"
#include "lsq/adj_object.h"
#include "lsq/ls_params.h"
#include "sensors/image_point.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {

// Role of an object point in the project.
enum class PointType : std::int32_t { none = 0, control = 1, intersection = 2, check = 3 };

// Two-letter name of a role as files and the report use it: "nu", "co", "in", "ch".
// Any other code gives the name that was looked up last (empty before the first look-up).
std::string_view point_type_name(PointType type);

// One record of a control-support file.
struct ControlSupport {
  std::string id;
  PointType type = PointType::none;
  bool marked[3] = {false, false, false};  // components x, y, z
};

// A point in object space with three adjustable coordinates, in the unit of object-space
// coordinates.
class ObjectPoint : public AdjObject {
 public:
  std::string_view get_type_name() const override { return "object point"; }
  std::string_view get_keyword() const override { return "obj-point"; }
  std::string get_param_name(std::int32_t i) const override;
  void init_params() override;
  void print_changes(TextWriter& out, const Vector& corrections) const override;
  std::int32_t check_convergence(const Vector& corrections) const override;

  // Sets the role from the standard deviations: intersection point when all three are beyond smax.
  void classify();
  // Applies a control-support record. 1, or -1 with a message for an invalid type.
  int set_from_cs(const ControlSupport& record);
  // Line of the report and of the object-point result file.
  void print_line(TextWriter& out) const;
  void write_line(TextWriter& out) const;

  Vec3 xyz{};
  Vec3 std_devs{ls_params().smaxu, ls_params().smaxu, ls_params().smaxu};
  PointType type = PointType::intersection;
  bool has_coords = false;                // coordinates were read or intersected
  bool check[3] = {false, false, false};  // components that are checked
  std::int32_t slot = -1;                 // in the project's list, where somebody has set it
  std::int32_t num_rays = 0;              // images that measure the point
};

// The object point that an image point measures; null when the list has none.
inline ObjectPoint* object_point_of(const ImagePoint& point, const OwnedList<ObjectPoint>& points) {
  return point.object_point != nullptr ? point.object_point : points.find(point.id);
}

// Reads an object-coordinates file. 1, or -1 with a message on standard output.
[[nodiscard]] int read_obj_crds(TokenReader& in, OwnedList<ObjectPoint>& points);
// Reads a control-support file and applies it to the points. 1, or -1 with a message.
[[nodiscard]] int read_ctrl_supp(TokenReader& in, OwnedList<ObjectPoint>& points);

}  // namespace vorn
