#include "sensors/camera.h"

#include "calibration/ap_set.h"
#include "calibration/camera_formulas.h"

namespace vorn {

namespace {

constexpr NumberFormat kReportLength = fixed(4, 10);
constexpr NumberFormat kFileLength = fixed(6, 12);

// The parameter sets of a camera, for its formulas.
class Sets {
 public:
  explicit Sets(const Camera& camera) : sets_(camera.ap_sets) {}
  template <class Visit>
  void for_each(Visit visit) const {
    for (const APSet* set : sets_) {
      if (set != nullptr) visit(set->terms());
    }
  }

 private:
  const std::vector<APSet*>& sets_;
};

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

Pair Camera::get_corrections(const Vec3& point) const { return corrections_at(Sets(*this), point); }

Vec3 Camera::image_to_camera(const Pair& image) const {
  return reduced(inner_orientation(), Sets(*this), image);
}

Pair Camera::camera_to_image(const Vec3& point) const {
  return completed(inner_orientation(), Sets(*this), point);
}

std::array<Dual<double>, 2> Camera::linearise(const Vec3& point,
                                              const RowPair<double*>& rows) const {
  return linearised(inner_orientation(), Sets(*this), point, rows);
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
