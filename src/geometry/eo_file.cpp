#include "geometry/eo_file.h"

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "base/units.h"
#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "lsq/ls_params.h"
#include "lsq/param_reading.h"
#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {
namespace {

constexpr std::array<std::string_view, 7> kTypes = {"ext-ori-opk-rot",    "ext-ori-pok-rot",
                                                    "ext-ori-opk-fix",    "ext-ori-australis",
                                                    "ext-ori-quaternion", "dlt",
                                                    "pmf-linear"};
constexpr std::array<std::string_view, 2> kLayouts = {"indiv-type", "common-type"};

constexpr Quantity kCentre[] = {{"Xo"}, {"Yo"}, {"Zo"}};
constexpr Quantity kCentreStdDevs[] = {{"the std. dev. of Xo", Range::not_negative},
                                       {"the std. dev. of Yo", Range::not_negative},
                                       {"the std. dev. of Zo", Range::not_negative}};
constexpr Quantity kRotationStdDev = {"the rotation's std. dev.", Range::not_negative};

// Null for keywords of other kinds; likewise below.
std::unique_ptr<ExtOrientation> make_ext_orientation(Keyword type) {
  switch (type) {
    case Keyword::ext_ori_opk_rot:
      return std::make_unique<EOAngles>(kAnglesOPKRot);
    case Keyword::ext_ori_pok_rot:
      return std::make_unique<EOAngles>(kAnglesPOKRot);
    case Keyword::ext_ori_opk_fix:
      return std::make_unique<EOAngles>(kAnglesOPKFix);
    case Keyword::ext_ori_australis:
      return std::make_unique<EOAngles>(kAnglesAustralis);
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
void store(TokenReader& in, OwnedList<ImageGeometry>& geometries,
           std::unique_ptr<ImageGeometry> geometry, std::string_view kind) {
  const ImageGeometry& stored = *geometry;
  const ImageGeometry* const earlier = in.listens() ? geometries.find(stored.id) : nullptr;
  if (earlier != nullptr) report_duplicate(in, earlier, "the later one counts");
  if (!geometries.put(std::move(geometry))) return;
  standard_output() << "ATTENTION: " << kind << ' ' << stored.id << " was replaced.\n";
}

int read_individual(TokenReader& in, OwnedList<ImageGeometry>& geometries) {
  return read_records(
      in, EndWords::keyword,
      [&](std::string_view word) {
        in.begin_record({"image-geometry"});
        std::unique_ptr<ImageGeometry> geometry = make_geometry(lookup_keyword(word));
        if (!geometry) {
          report_unknown_word(in, word, "type of image geometry", kTypes);
          return reading_failed("ERROR: Unknown type of image geometry: ", word, '\n');
        }
        if (geometry->read(in) != 1) {
          return reading_failed("ERROR: Reading exterior orientation failed.\n");
        }
        store(in, geometries, std::move(geometry), "EO");
        return 1;
      },
      begins_with_keyword);
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

bool read_three(TokenReader& in, Vec3& values, const Quantity& what) {
  return in.read(values[0], what) && in.read(values[1], what) && in.read(values[2], what);
}

// Three numbers, or up to three in parentheses.
bool read_triple(TokenReader& in, Vec3& values, const Quantity (&what)[3]) {
  double triple[3];
  if (!in.read_triple(triple, what)) return false;
  values = {triple[0], triple[1], triple[2]};
  return true;
}

int read_header(TokenReader& in, CommonHeader& header) {
  std::string_view word;
  if (!in.need_word(word, "the type")) {
    return reading_failed("ERROR: Cannot read type of geometry.\n");
  }
  header.type = lookup_keyword(word);
  if (!make_ext_orientation(header.type)) {
    report_unknown_word(in, word, "type of exterior orientation", std::span(kTypes).first(5));
    return reading_failed("ERROR: Unknown type of image geometry: ", word, '\n');
  }
  if (!in.need_word(word, "the angle unit")) {
    return reading_failed("ERROR: Cannot read unit of rotation angles.\n");
  }
  if (!header.unit.set(word)) {
    report_unknown_word(in, word, "angle unit", angle_unit_names());
    return reading_failed("ERROR: Invalid unit of rotation angles: ", word, '\n');
  }
  if (!in.read(header.has_time, {"the time flag"})) {
    return reading_failed("ERROR: Cannot read time flag.\n");
  }
  if (!in.read(header.has_matrix, {"the rotation-matrix flag"})) {
    return reading_failed("ERROR: Cannot read rotation matrix flag.\n");
  }
  if (!read_triple(in, header.centre_std_devs, kCentreStdDevs) ||
      !read_three(in, header.rotation_std_devs, kRotationStdDev)) {
    return reading_failed("ERROR: Cannot read common std. devs.\n");
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
      if (!read_three(in, row, {"the rotation matrix"})) {
        return reading_failed("ERROR: Cannot read rotation matrix.\n");
      }
    }
    params = geometry.params_from_matrix(r);
  } else {
    if (count != 3) {
      in.report(FindingCode::keyword_unknown, in.subject().id,
                "three numbers are no quaternion: the records of this type need rotation matrices",
                "set the rotation-matrix flag to 1, or use the layout \"indiv-type\"");
      return reading_failed("ERROR: Cannot read rotation parameters.\n");
    }
    for (std::int32_t k = 0; k < 3; ++k) {
      double& angle = params[static_cast<std::size_t>(k)];
      if (!read_parameter(in, geometry, 3 + k, angle)) {
        return reading_failed("ERROR: Cannot read rotation parameters.\n");
      }
      angle /= header.unit.factor;
    }
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
  if (header.has_time && !in.read(geometry.exposure_time, kExposureTime)) {
    return reading_failed("ERROR: Cannot read exposure time.\n");
  }
  Vec3 centre{};
  if (!read_triple(in, centre, kCentre)) {
    return reading_failed("ERROR: Cannot read projection centre coords.\n");
  }
  for (std::int32_t k = 0; k < 3; ++k) {
    geometry.value(k) = centre[static_cast<std::size_t>(k)];
    geometry.std_dev(k) = header.centre_std_devs[static_cast<std::size_t>(k)];
  }
  return read_rotation(in, header, geometry);
}

int read_common(TokenReader& in, OwnedList<ImageGeometry>& geometries) {
  CommonHeader header;
  if (read_header(in, header) != 1) return -1;
  const std::size_t words_per_record = (header.has_time ? 5U : 4U) + (header.has_matrix ? 9U : 3U);
  report_broken_lines(in, words_per_record, "image geometry",
                      [](std::string_view) { return false; });
  const auto read_one = [&](std::string_view id) {
    std::unique_ptr<ExtOrientation> geometry = make_ext_orientation(header.type);
    geometry->id = id;
    in.begin_object("image-geometry", geometry.get());
    if (read_record(in, header, *geometry) != 1) return -1;
    store(in, geometries, std::move(geometry), "Exterior orientation");
    return 1;
  };
  return read_records(in, EndWords::keyword_or_minus_one, read_one, words_per_record);
}

}  // namespace

int read_eo_file(TokenReader& in, OwnedList<ImageGeometry>& geometries) {
  std::string_view layout;
  if (!in.need_word(layout, "the layout")) {
    return reading_failed("ERROR: Reading keyword failed.\n");
  }
  if (layout == "indiv-type") {
    if (read_individual(in, geometries) == 1) return 1;
    return reading_failed("ERROR: Reading EO individual type failed.\n");
  }
  if (layout == "common-type") {
    if (read_common(in, geometries) == 1) return 1;
    return reading_failed("ERROR: Reading EO common type failed.\n");
  }
  report_unknown_word(in, layout, "layout", kLayouts);
  return reading_failed("ERROR: Unknown keyword: ", layout, '\n');
}

}  // namespace vorn
