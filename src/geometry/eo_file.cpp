#include "geometry/eo_file.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "driver/keywords.h"
#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "geometry/units.h"
#include "lsq/ls_params.h"

namespace vorn {
namespace {

int fail(std::string_view message) {
  standard_output() << message;
  return -1;
}

int fail(std::string_view message, std::string_view word) {
  standard_output() << message << word << '\n';
  return -1;
}

// Null for keywords of other kinds; likewise below.
std::unique_ptr<ExtOrientation> make_ext_orientation(Keyword type) {
  switch (type) {
    case Keyword::ext_ori_opk_rot:
      return std::make_unique<EOAnglesOPKRot>();
    case Keyword::ext_ori_pok_rot:
      return std::make_unique<EOAnglesPOKRot>();
    case Keyword::ext_ori_opk_fix:
      return std::make_unique<EOAnglesOPKFix>();
    case Keyword::ext_ori_australis:
      return std::make_unique<EOAustralis>();
    case Keyword::ext_ori_quaternion:
      return std::make_unique<EOQuaternion>();
    default:
      return nullptr;
  }
}

std::unique_ptr<ImageGeometry> make_geometry(Keyword type) {
  if (type == Keyword::dlt) return std::make_unique<DirectLinearTransf>();
  if (type == Keyword::pmf_linear) return std::make_unique<PMFLinear>();
  return make_ext_orientation(type);
}

// `kind` begins the message about a replacement.
void store(OwnedList<ImageGeometry>& geometries, std::unique_ptr<ImageGeometry> geometry,
           std::string_view kind) {
  const std::int32_t slot = geometries.slot_of(geometry->id);
  if (slot == OwnedList<ImageGeometry>::kNone) {
    geometries.append(std::move(geometry));
    return;
  }
  const ImageGeometry& stored = geometries.replace(slot, std::move(geometry));
  standard_output() << "ATTENTION: " << kind << ' ' << stored.id << " was replaced.\n";
}

int read_individual(TokenReader& in, OwnedList<ImageGeometry>& geometries) {
  std::string_view word;
  while (in.read_word(word)) {
    const Keyword type = lookup_keyword(word);
    if (type == Keyword::stop_dep) return 1;
    std::unique_ptr<ImageGeometry> geometry = make_geometry(type);
    if (!geometry) return fail("ERROR: Unknown type of image geometry: ", word);
    if (geometry->read(in) != 1) return fail("ERROR: Reading exterior orientation failed.\n");
    store(geometries, std::move(geometry), "EO");
  }
  return 1;
}

// What all records of the common layout share.
struct CommonHeader {
  Keyword type = Keyword::none;
  UnitAngle unit;
  bool has_time = false;
  bool has_matrix = false;
  Vec3 centre_std_devs{};
  Vec3 rotation_std_devs{};
};

bool read_three(TokenReader& in, Vec3& values) {
  return in.read(values[0]) && in.read(values[1]) && in.read(values[2]);
}

// Three numbers, or up to three in parentheses.
bool read_triple(TokenReader& in, Vec3& values) {
  double triple[3];
  if (!in.read_triple(triple)) return false;
  values = {triple[0], triple[1], triple[2]};
  return true;
}

int read_header(TokenReader& in, CommonHeader& header) {
  std::string_view word;
  if (!in.read_word(word)) return fail("ERROR: Cannot read type of geometry.\n");
  header.type = lookup_keyword(word);
  if (!make_ext_orientation(header.type)) {
    return fail("ERROR: Unknown type of image geometry: ", word);
  }
  if (!in.read_word(word)) return fail("ERROR: Cannot read unit of rotation angles.\n");
  if (!header.unit.set(word)) return fail("ERROR: Invalid unit of rotation angles: ", word);
  if (!in.read(header.has_time)) return fail("ERROR: Cannot read time flag.\n");
  if (!in.read(header.has_matrix)) return fail("ERROR: Cannot read rotation matrix flag.\n");
  if (!read_triple(in, header.centre_std_devs) || !read_three(in, header.rotation_std_devs)) {
    return fail("ERROR: Cannot read common std. devs.\n");
  }
  for (double& sigma : header.rotation_std_devs) {
    if (ls_params().is_observed(sigma)) sigma /= header.unit.factor;
  }
  return 1;
}

// Rotation parameters of one record, from angles or a matrix.
int read_rotation(TokenReader& in, const CommonHeader& header, ExtOrientation& geometry) {
  const std::int32_t count = geometry.num_values() - 3;
  ExtOrientation::RotationParams params{};
  if (header.has_matrix) {
    Mat3 r{};
    for (Vec3& row : r) {
      if (!read_three(in, row)) return fail("ERROR: Cannot read rotation matrix.\n");
    }
    params = geometry.params_from_matrix(r);
  } else {
    Vec3 angles{};
    // Three numbers are no quaternion.
    if (count != 3 || !read_three(in, angles)) {
      return fail("ERROR: Cannot read rotation parameters.\n");
    }
    for (std::size_t k = 0; k < 3; ++k) params[k] = angles[k] / header.unit.factor;
  }
  for (std::int32_t k = 0; k < count; ++k) {
    const auto i = static_cast<std::size_t>(k);
    geometry.value(3 + k) = params[i];
    geometry.std_dev(3 + k) = header.rotation_std_devs[i < 3 ? i : 2];
  }
  return 1;
}

// The record behind the identifier.
int read_record(TokenReader& in, const CommonHeader& header, ExtOrientation& geometry) {
  if (header.has_time && !in.read(geometry.exposure_time)) {
    return fail("ERROR: Cannot read exposure time.\n");
  }
  Vec3 centre{};
  if (!read_triple(in, centre)) return fail("ERROR: Cannot read projection centre coords.\n");
  for (std::int32_t k = 0; k < 3; ++k) {
    geometry.value(k) = centre[static_cast<std::size_t>(k)];
    geometry.std_dev(k) = header.centre_std_devs[static_cast<std::size_t>(k)];
  }
  return read_rotation(in, header, geometry);
}

int read_common(TokenReader& in, OwnedList<ImageGeometry>& geometries) {
  CommonHeader header;
  if (read_header(in, header) != 1) return -1;
  std::string id;
  while (in.read_word(id) && id != "stop-dep" && id != "-1") {
    std::unique_ptr<ExtOrientation> geometry = make_ext_orientation(header.type);
    geometry->id = id;
    if (read_record(in, header, *geometry) != 1) return -1;
    store(geometries, std::move(geometry), "Exterior orientation");
  }
  return 1;
}

}  // namespace

int read_eo_file(TokenReader& in, OwnedList<ImageGeometry>& geometries) {
  std::string_view layout;
  if (!in.read_word(layout)) return fail("ERROR: Reading keyword failed.\n");
  if (layout == "indiv-type") {
    if (read_individual(in, geometries) == 1) return 1;
    return fail("ERROR: Reading EO individual type failed.\n");
  }
  if (layout == "common-type") {
    if (read_common(in, geometries) == 1) return 1;
    return fail("ERROR: Reading EO common type failed.\n");
  }
  return fail("ERROR: Unknown keyword: ", layout);
}

}  // namespace vorn
