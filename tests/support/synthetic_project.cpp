#include "support/synthetic_project.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>

#include "calibration/ap_models.h"
#include "driver/keywords.h"
#include "support/noise.h"

namespace vorn::test {
namespace {

constexpr double kFocal = 0.05;
constexpr double kXp = 1e-4;
constexpr double kYp = -2e-4;
constexpr double kLineOffset = 3e-4;
constexpr double kColumnPitch = 10e-6;
constexpr double kRowPitch = 12e-6;
// One line of the simulated pushbroom camera is as high as an image.
constexpr double kLinePitch = 0.3;
constexpr double kColumns = 4000;
constexpr double kRows = 3000;
constexpr double kDistance = 5.0;

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, " %.12g", value);
  return text;
}

template <class Values = std::initializer_list<double>>
std::string numbers(const Values& values) {
  std::string text;
  for (const double value : values) text += number(value);
  return text + '\n';
}

std::string name(const char* prefix, std::size_t i) { return prefix + std::to_string(i + 1); }

// R whose columns are the axes of an image at `centre` that looks at the origin, turned by `roll`.
Mat3 rotation_towards_origin(const Vec3& centre, double roll) {
  const Vec3 z = (1.0 / std::sqrt(dot(centre, centre))) * centre;
  const Vec3 level = cross({0, 0, 1}, z);
  const Vec3 x = (1.0 / std::sqrt(dot(level, level))) * level;
  const Vec3 y = cross(z, x);
  const double c = std::cos(roll);
  const double s = std::sin(roll);
  return transposed({c * x + s * y, c * y - s * x, z});
}

// Rotation parameters of R in the parametrisation of an orientation keyword.
std::vector<double> rotation_params(const std::string& keyword, const Mat3& r) {
  if (keyword == "ext-ori-quaternion") {
    const double q0 = 0.5 * std::sqrt(r[0][0] + r[1][1] + r[2][2] + 1.0);
    return {q0, (r[2][1] - r[1][2]) / (4 * q0), (r[0][2] - r[2][0]) / (4 * q0),
            (r[1][0] - r[0][1]) / (4 * q0)};
  }
  const auto opk = [](const Mat3& m) {
    return std::vector{std::atan2(-m[1][2], m[2][2]), std::asin(m[0][2]),
                       std::atan2(-m[0][1], m[0][0])};
  };
  const auto pok = [](const Mat3& m) {
    return std::vector{std::atan2(m[0][2], m[2][2]), std::asin(-m[1][2]),
                       std::atan2(m[1][0], m[1][1])};
  };
  if (keyword == "ext-ori-pok-rot") return pok(r);
  // R = Rx(90 deg) R', hence R' has the rows 0, 2 and -1 of R.
  if (keyword == "ext-ori-australis") return pok({r[0], r[2], -r[1]});
  return opk(keyword == "ext-ori-opk-fix" ? transposed(r) : r);
}

struct Image {
  std::size_t camera;
  std::string keyword;
  Vec3 centre;  // at the exposure time, corrections included
  Mat3 r;
  std::vector<double> params;  // of the orientation

  // Projection before the corrections of the camera.
  Pair project(const Vec3& point) const {
    const std::vector<double>& a = params;
    if (keyword == "pmf-linear") {
      const Vec3 x = {a[1], a[2], a[3]};
      const Vec3 y = {a[5], a[6], a[7]};
      return {a[0] + dot(x, point), a[4] + dot(y, point)};
    }
    const Vec3 u = transposed_times(r, point - centre);
    return {-kFocal * u[0] / u[2], -kFocal * u[1] / u[2]};
  }
};

class Simulation {
 public:
  explicit Simulation(const SyntheticSpec& spec) : spec_(spec), noise_(spec.seed) {}

  SyntheticProject run() {
    write_settings();
    make_correction("position", spec_.position_triples, 0.01);
    make_correction("attitude", spec_.attitude_triples, 0.005);
    make_images();
    make_points();
    make_ap_sets();
    measure();
    project_.files["project.ctl"] = control_ + "stop-dep\n";
    return std::move(project_);
  }

 private:
  void add_file(const char* keyword, const std::string& file, const std::string& text) {
    project_.files[file] = text;
    control_ += std::string(keyword) + ' ' + file + '\n';
  }

  void write_settings() {
    add_file("params", "params.txt", "0 0 0 0 0 0 0 0 0 0 0 0 3 3 none none none none\n");
    // Constraints of full weight would drown the digits of image coordinates in N.
    add_file("ls-params", "lspar.txt",
             number(spec_.sigma_image) +
                 " 20 1 1 1 1 1e-7 1e-7 1e-9 1e-9 1e-30 1e30 1e-31 1e31 1e10 1e4 "
                 "0.8 1 0.001 1.96 1e30 10 m " +
                 spec_.angle_unit + " native\n");
    std::string text;
    for (std::size_t i = 0; i < spec_.cameras.size(); ++i) {
      const std::string& keyword = spec_.cameras[i];
      text += keyword + ' ' + name("k", i) + " simulated" +
              numbers({kFocal * 1e3, kXp * 1e3, kYp * 1e3});
      if (keyword == "camera-frame") {
        text += numbers({40.0, 30.0});
      } else if (keyword == "camera-pushbroom") {
        text += numbers({kColumns, kColumnPitch * 1e6, kLinePitch * 1e6, kLineOffset * 1e3});
      } else {
        text += numbers({kColumns, kRows, kColumnPitch * 1e6, kRowPitch * 1e6});
      }
    }
    add_file("camera", "camera.txt", text);
  }

  // The polynomials in time of both corrections; one of each serves all images.
  void make_correction(const char* id, std::int32_t triples, double size) {
    std::vector<double>& truth = project_.truth[id];
    for (std::int32_t i = 0; i < 3 * triples; ++i) {
      truth.push_back(size * noise_.normal() / std::pow(4.0, i / 3));
    }
  }

  Vec3 correction_at(const char* id, double t) {
    const std::vector<double>& truth = project_.truth[id];
    Vec3 sum{};
    for (std::size_t i = 0; i < truth.size(); ++i) {
      sum[i % 3] += truth[i] * std::pow(t, static_cast<double>(i / 3));
    }
    return sum;
  }

  void make_images() {
    std::string image_text;
    std::string eo_text = "indiv-type\n";
    std::string stations;
    for (std::size_t i = 0; i < static_cast<std::size_t>(spec_.images); ++i) {
      const double azimuth = 0.3 + 2.0 * std::numbers::pi * static_cast<double>(i) / spec_.images;
      const Vec3 direction = {0.7 * std::cos(azimuth), 0.7 * std::sin(azimuth), 0.72};
      Image image{i % spec_.cameras.size(),
                  spec_.orientations[i % spec_.orientations.size()],
                  kDistance * direction,
                  {},
                  {}};
      image.r = rotation_towards_origin(image.centre, static_cast<double>(i % 4) * 1.5 + 0.2);
      eo_text += image.keyword + ' ' + name("e", i);
      eo_text += image.keyword.starts_with("ext-ori")
                     ? make_orientation(image, static_cast<double>(i))
                     : make_linear(image);
      project_.truth[name("e", i)] = image.params;
      image_text +=
          "image-frame " + name("i", i) + ' ' + name("e", i) + ' ' + name("k", image.camera) + '\n';
      stations += name("e", i) + ' ';
      images_.push_back(std::move(image));
    }
    add_file("image", "image.txt", image_text);
    add_file("image-geometry", "eo.txt", eo_text + "stop-dep\n");
    write_correction("pos-cor", "position", spec_.position_triples, stations);
    write_correction("att-cor", "attitude", spec_.attitude_triples, stations);
  }

  void write_correction(const char* keyword, const char* id, std::int32_t triples,
                        const std::string& stations) {
    if (triples == 0) return;
    std::string text =
        std::string(id) + ' ' + stations + "stop-dep 0 " + std::to_string(triples) + '\n';
    for (std::int32_t i = 0; i < triples; ++i) text += " 0 1e31 0 1e31 0 1e31\n";
    add_file(keyword, std::string(id) + ".txt", text);
  }

  bool corrected() const { return spec_.position_triples + spec_.attitude_triples > 0; }

  // Fills in the true parameters; returns the rest of the record with approximate ones.
  std::string make_orientation(Image& image, double time) {
    const Vec3 centre = image.centre - correction_at("position", time);
    std::vector<double> rotation = rotation_params(image.keyword, image.r);
    const Vec3 attitude = correction_at("attitude", time);
    for (std::size_t k = 0; k < 3; ++k) rotation[k] -= attitude[k];
    image.params.assign(centre.begin(), centre.end());
    image.params.insert(image.params.end(), rotation.begin(), rotation.end());

    const bool quaternion = image.keyword == "ext-ori-quaternion";
    const double unit = quaternion || spec_.angle_unit == "rad" ? 1.0 : 200.0 / std::numbers::pi;
    const char* const sdev = corrected() ? " 1e-31" : " 1e31";
    const auto triple_sdev = std::string(sdev) + sdev + sdev;
    Vec3 near = centre;
    for (double& v : near) v += corrected() ? 0.0 : 0.02 * noise_.normal();
    for (double& v : rotation) v = unit * (v + (corrected() ? 0.0 : 0.005 * noise_.normal()));
    return (quaternion ? std::string() : ' ' + spec_.angle_unit) + number(time) + '\n' +
           numbers(near) + triple_sdev + '\n' + numbers(rotation) + triple_sdev +
           (quaternion ? sdev : "") + '\n';
  }

  // The collinearity equations as x = -c r0'(X - Xo) / r2'(X - Xo), or their parallel projection.
  std::string make_linear(Image& image) {
    const bool dlt = image.keyword == "dlt";
    const Mat3 axes = transposed(image.r);
    const double last = dlt ? -1.0 / dot(axes[2], image.centre) : 0.0;
    for (std::size_t row = 0; row < (dlt ? 3U : 2U); ++row) {
      const double scale = !dlt ? kFocal / kDistance : row < 2 ? -kFocal * last : last;
      const Vec3 l = scale * axes[row];
      if (!dlt) image.params.push_back(row == 0 ? 1e-3 : -2e-3);
      image.params.insert(image.params.end(), l.begin(), l.end());
      if (dlt && row < 2) image.params.push_back(-dot(l, image.centre));
    }
    std::string text = " 0\n";
    for (const double v : image.params) {
      text += number(v * (1.0 + (dlt ? 1e-4 : 1e-3) * noise_.normal())) + " 1e31\n";
    }
    return text;
  }

  void make_points() {
    std::string text = "indiv-sdev\n";
    std::string roles;
    for (std::size_t i = 0; i < static_cast<std::size_t>(spec_.points); ++i) {
      const Vec3 point = {noise_.uniform(-1.2, 1.2), noise_.uniform(-1.2, 1.2),
                          noise_.uniform(-0.4, 0.4)};
      points_.push_back(point);
      project_.truth[name("p", i)].assign(point.begin(), point.end());
      const auto serial = static_cast<std::int32_t>(i);
      const bool control = serial < spec_.control;
      Vec3 near = point;
      for (double& v : near) v += (control ? spec_.sigma_control : 0.02) * noise_.normal();
      const double sdev = control ? spec_.sigma_control : 1e31;
      text += name("p", i) + numbers(near) + numbers({sdev, sdev, sdev});
      if (!control && serial < spec_.control + spec_.check) roles += name("p", i) + " ch xyz\n";
    }
    add_file("obj-crds", "obj.txt", text + "stop-dep\n");
    add_file("ctrl-supp", "cs.txt", roles + "stop-dep\n");
  }

  // Every parameter is observed as 0, with a standard deviation of some 20 um in the image.
  void make_ap_sets() {
    std::string text;
    for (std::size_t i = 0; i < spec_.ap_sets.size(); ++i) {
      std::unique_ptr<APSet> set = make_ap_set(lookup_keyword(spec_.ap_sets[i]));
      set->id = name("s", i);
      text += spec_.ap_sets[i] + ' ' + set->id + ' ' + name("k", i % spec_.cameras.size()) + '\n';
      if (auto* const grid = dynamic_cast<APSetP*>(set.get())) {
        grid->grid_width = 0.015;
        text += " 15\n";
      }
      DesignBlock block;
      set->get_derivs({0.011, 0.007, -kFocal}, block);
      std::vector<double>& truth = project_.truth[set->id];
      for (std::int32_t k = 0; k < set->num_ap(); ++k) {
        const double effect = std::max(std::fabs(block.a[0][k]), std::fabs(block.a[1][k]));
        const double sdev = std::stod(number(20e-6 / effect));
        truth.push_back(set->value(k) = sdev * noise_.normal());
        text += " 0" + number(sdev) + '\n';
      }
      sets_.push_back(std::move(set));
    }
    if (!sets_.empty()) add_file("ap-set", "ap.txt", text + "stop-dep\n");
  }

  // Measured pair and standard deviations of image coordinates [m] in the system of a camera.
  std::string measured(const std::string& camera, double x, double y) const {
    const double s = spec_.sigma_image;
    std::array<double, 4> values = {x * 1e3, y * 1e3, s * 1e3, s * 1e3};
    if (camera == "camera-ccd") {
      values = {x / kColumnPitch + 0.5 * (kColumns - 1), 0.5 * (kRows - 1) - y / kRowPitch,
                s / kColumnPitch, s / kRowPitch};
    } else if (camera == "camera-ccd-tr") {
      values = {0.5 * (kColumns - 1) - y / kColumnPitch, 0.5 * (kRows - 1) - x / kRowPitch,
                s / kRowPitch, s / kColumnPitch};
    } else if (camera == "camera-pushbroom") {
      values = {y / kColumnPitch + 0.5 * (kColumns - 1), (x - kLineOffset) / kLinePitch,
                s / kColumnPitch, s / kLinePitch};
    }
    return numbers(values);
  }

  void measure() {
    std::string text;
    for (std::size_t i = 0; i < images_.size(); ++i) {
      const Image& image = images_[i];
      const std::string& camera = spec_.cameras[image.camera];
      text += name("i", i) + (camera == "camera-frame" ? " 0.001\n" : " 1\n");
      for (std::size_t p = 0; p < points_.size(); ++p) {
        const Pair at = image.project(points_[p]);
        double x = kXp + at[0] + spec_.sigma_image * noise_.normal();
        double y = kYp + at[1] + spec_.sigma_image * noise_.normal();
        for (std::size_t s = image.camera; s < sets_.size(); s += spec_.cameras.size()) {
          const Pair d = sets_[s]->get_correction({at[0], at[1], -kFocal});
          x += d[0];
          y += d[1];
        }
        text += ' ' + name("p", p) + measured(camera, x, y);
      }
      text += "-1\n";
    }
    add_file("image-crds", "crds.txt", text + "stop-dep\n");
  }

  const SyntheticSpec& spec_;
  Noise noise_;
  SyntheticProject project_;
  std::string control_;
  std::vector<Image> images_;
  std::vector<Vec3> points_;
  std::vector<std::unique_ptr<APSet>> sets_;
};

}  // namespace

std::string SyntheticProject::write(const TempDir& dir) const {
  for (const auto& [file, text] : files) dir.write(file, text);
  return dir.path("project.ctl");
}

SyntheticProject make_synthetic_project(const SyntheticSpec& spec) {
  return Simulation(spec).run();
}

}  // namespace vorn::test
