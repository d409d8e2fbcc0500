#include "sensors/camera.h"

#include <type_traits>

#include "calibration/ap_set.h"

namespace vorn {

namespace {

constexpr NumberFormat kReportLength = fixed(4, 10);
constexpr NumberFormat kFileLength = fixed(6, 12);

}  // namespace

bool Camera::read_head(TokenReader& in) {
  if (!in.need_name(id, "the identifier")) return false;
  in.begin_object("camera", this);
  if (!in.need_name(comment, "the comment")) return false;
  if (!in.read(c, {"c", Range::positive})) return false;
  in.remember(this, in.last_word(), place_of::kDistance);
  if (!in.read_pair(xp, yp, {{"xp"}, {"yp"}})) return false;
  c *= 0.001;
  xp *= 0.001;
  yp *= 0.001;
  return true;
}

int Camera::read(TokenReader& in) {
  if (!read_head(in) || !in.read(sx, {"sx", Range::not_negative}) ||
      !in.read(sy, {"sy", Range::not_negative}))
    return -1;
  sx *= 0.001;
  sy *= 0.001;
  return 1;
}

void Camera::write_head(TextWriter& out, std::string_view keyword) const {
  out << keyword << "   " << id << "   " << comment << '\n';
  out << kFileLength(c * 1000) << ' ' << kFileLength(xp * 1000) << ' ' << kFileLength(yp * 1000)
      << '\n';
  out << kFileLength(sx * 1000) << ' ' << kFileLength(sy * 1000) << '\n';
}

void Camera::write(TextWriter& out) const { write_head(out, "frame"); }

void Camera::print(TextWriter& out) const {
  out << "Camera ID          :  " << id << '\n';
  out << "Camera type        :  " << get_type_name() << '\n';
  out << "Comment            :  " << comment << '\n';
  out << "Coord. system type :  " << get_coord_system_name() << '\n';
  out << "Focal length       :  f  = " << kReportLength(c * 1000) << " mm\n";
  out << "Principal point    :  xp = " << kReportLength(xp * 1000)
      << " mm      yp = " << kReportLength(yp * 1000) << " mm\n";
  out << "BundleImage format       :  sx = " << kReportLength(sx * 1000)
      << " mm      sy = " << kReportLength(sy * 1000) << " mm\n";
  out << '\n';
}

template <class T>
std::array<T, 2> Camera::corrections_at(const Vec3Of<T>& point) const {
  std::array<T, 2> sum{0.0, 0.0};
  for (const APSet* set : ap_sets) {
    if (set == nullptr) continue;
    std::array<T, 2> correction;
    if constexpr (std::is_same_v<T, Pack>) {
      correction = set->get_packed_correction(point);
    } else {
      correction = set->get_correction(point);
    }
    sum[0] += correction[0];
    sum[1] += correction[1];
  }
  return sum;
}

Pair Camera::get_corrections(const Vec3& point) const { return corrections_at(point); }

template <class T>
Vec3Of<T> Camera::reduced(const std::array<T, 2>& image) const {
  Vec3Of<T> point{image[0] - xp, image[1] - yp, -c};
  const std::array<T, 2> correction = corrections_at(point);
  point[0] -= correction[0];
  point[1] -= correction[1];
  return point;
}

template <class T>
std::array<T, 2> Camera::completed(const Vec3Of<T>& point) const {
  const std::array<T, 2> correction = corrections_at(point);
  return {xp + point[0] + correction[0], yp + point[1] + correction[1]};
}

Vec3 Camera::image_to_camera(const Pair& image) const { return reduced(image); }
Pair Camera::camera_to_image(const Vec3& point) const { return completed(point); }
Vec3Of<Pack> Camera::packed_image_to_camera(const PackPair& image) const { return reduced(image); }
PackPair Camera::packed_camera_to_image(const Vec3Of<Pack>& point) const {
  return completed(point);
}

template <class T>
std::array<Dual<T>, 2> Camera::linearise_at(const Vec3Of<T>& point, RowPair<T> rows) const {
  std::array<Dual<T>, 2> image{Dual<T>(xp + point[0], 1.0, 0.0), Dual<T>(yp + point[1], 0.0, 1.0)};
  std::array<Dual<T>, 2> correction{0.0, 0.0};
  for (const APSet* set : ap_sets) {
    if (set == nullptr) continue;
    set->linearise(point, rows, correction);
    rows.x += set->num_ap();
    rows.y += set->num_ap();
  }
  return {image[0] + correction[0], image[1] + correction[1]};
}

std::array<Dual<double>, 2> Camera::linearise(const Vec3& point, RowPair<double> rows) const {
  return linearise_at(point, rows);
}

std::array<Dual<Pack>, 2> Camera::linearise(const Vec3Of<Pack>& point, RowPair<Pack> rows) const {
  return linearise_at(point, rows);
}

void Camera::get_derivs(const Vec3& point, std::vector<DesignBlock>& blocks) const {
  for (std::size_t i = 0; i < ap_sets.size(); ++i) {
    if (ap_sets[i] == nullptr) {
      error_output() << "ERROR: Camera::get_derivs: null pointer!\n";
      continue;
    }
    ap_sets[i]->get_derivs(point, blocks[i]);
    blocks[i].index = ap_sets[i]->index;
  }
}

}  // namespace vorn
