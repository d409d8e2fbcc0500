#include "support/synthetic_project.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>

#include "calibration/ap_models.h"
#include "geometry/rotations.h"
#include "support/noise.h"

namespace vorn::test {
namespace {

constexpr double kFocal = 0.05;
constexpr double kDistance = 5.0;
constexpr double kSigmaControl = 2e-5;
// One line of the simulated pushbroom camera is as high as an image.
const std::map<std::string, const char*> kFormats = {{"camera-frame", " 40 30\n"},
                                                     {"camera-ccd", " 4000 3000 10 12\n"},
                                                     {"camera-ccd-tr", " 4000 3000 10 12\n"},
                                                     {"camera-pushbroom", " 4000 10 3e5 0.3\n"}};

template <class Values = std::initializer_list<double>>
std::string numbers(const Values& values) {
  std::string text;
  char number[32];
  for (const double value : values) {
    std::snprintf(number, sizeof number, " %.12g", value);
    text += number;
  }
  return text + '\n';
}

std::string name(char prefix, std::size_t i) { return prefix + std::to_string(i + 1); }

std::vector<double> rotation_params(const std::string& keyword, const Mat3& r) {
  if (keyword == "ext-ori-quaternion") {
    const quaternion::Params q = quaternion::params_from_matrix(r);
    return {q.begin(), q.end()};
  }
  const Vec3 angles = keyword == "ext-ori-pok-rot"     ? pok_rot::params_from_matrix(r)
                      : keyword == "ext-ori-opk-fix"   ? opk_fix::params_from_matrix(r)
                      : keyword == "ext-ori-australis" ? australis::params_from_matrix(r)
                                                       : opk_rot::params_from_matrix(r);
  return {angles.begin(), angles.end()};
}

struct Image {
  const Camera* camera;
  std::string keyword;
  Vec3 centre;  // at the exposure time, corrections included
  Mat3 r;
  std::vector<double> params;  // of the orientation

  // Projection before the corrections of the camera.
  Pair project(const Vec3& point) const {
    if (keyword == "pmf-linear") {
      const std::vector<double>& a = params;
      return {a[0] + dot({a[1], a[2], a[3]}, point), a[4] + dot({a[5], a[6], a[7]}, point)};
    }
    const Vec3 u = transposed_times(r, point - centre);
    return {-kFocal * u[0] / u[2], -kFocal * u[1] / u[2]};
  }
};

class Simulation {
 public:
  explicit Simulation(const SyntheticSpec& spec) : spec_(spec), noise_(spec.seed) {}

  SyntheticProject run() {
    add_file("params", "params.txt", "0 0 0 0 0 0 0 0 0 0 0 0 3 3 none none none none\n");
    // Constraints of full weight would drown the digits of image coordinates in N.
    add_file("ls-params", "lspar.txt",
             "2e-6 20 1 1 1 1 1e-7 1e-7 1e-9 1e-9 1e-30 1e30 1e-31 1e31 1e10 1e4 "
             "0.8 1 0.001 1.96 1e30 10 m gon native\n");
    make_cameras();
    for (const char* id : {"position", "attitude"}) {
      for (std::size_t i = 0; i < 3 * spec_.triples; ++i) {
        const double size = 0.01 / std::pow(4.0, i / 3);
        project_.truth[id].push_back(size * noise_.normal());
      }
    }
    make_images();
    make_points();
    make_ap_sets();
    measure();
    project_.files["project.ctl"] = control_ + "stop-dep\n";
    return std::move(project_);
  }

 private:
  void add_file(const std::string& keyword, const std::string& file, const std::string& text) {
    project_.files[file] = text;
    control_ += keyword + ' ' + file + '\n';
  }

  Camera& camera(std::size_t i) {
    return *cameras_[static_cast<std::int32_t>(i % spec_.cameras.size())];
  }

  void make_cameras() {
    std::string text;
    for (std::size_t i = 0; i < spec_.cameras.size(); ++i) {
      const std::string& keyword = spec_.cameras[i];
      text += keyword + ' ' + name('k', i) + " simulated 50 0.1 -0.2" + kFormats.at(keyword);
    }
    TokenReader in(text);
    EXPECT_EQ(read_camera_file(in, cameras_), 1);
    add_file("camera", "camera.txt", text);
  }

  // The polynomials in time of both corrections; one of each serves all images.
  Vec3 correction_at(const char* id, double t) {
    const std::vector<double>& truth = project_.truth[id];
    Vec3 sum{};
    for (std::size_t i = 0; i < truth.size(); ++i) sum[i % 3] += truth[i] * std::pow(t, i / 3);
    return sum;
  }

  void make_images() {
    std::string image_text;
    std::string eo_text = "indiv-type\n";
    std::string stations;
    std::string turning_stations;  // of orientations that an attitude correction turns
    for (std::size_t i = 0; i < spec_.images; ++i) {
      const auto time = static_cast<double>(i);
      const double place = spec_.twins && i == 1 ? 0.0 : time;
      const double azimuth =
          0.3 + 2.0 * std::numbers::pi * place / static_cast<double>(spec_.images);
      const std::string id = name('e', i);
      Image image;
      image.camera = &camera(i);
      image.keyword = spec_.orientations[i % spec_.orientations.size()];
      // Above the field, looking at the origin or, without tilt, straight down.
      const auto looking = [&](double tilt) {
        return opk_rot::matrix_from_params({tilt * std::cos(azimuth), tilt * std::sin(azimuth),
                                            static_cast<double>(i % 4) * 1.5 + 0.2});
      };
      image.r = looking(spec_.tilt);
      const Mat3 placed = spec_.tilt == 0.0 ? looking(0.3) : image.r;
      image.centre = kDistance * Vec3{placed[0][2], placed[1][2], placed[2][2]};
      if (spec_.tilt == 0.0) image.centre[2] = kDistance;
      eo_text += image.keyword + ' ' + id;
      eo_text +=
          image.keyword.starts_with("ext-ori") ? make_orientation(image, time) : make_linear(image);
      project_.truth[id] = image.params;
      image_text += "image-frame " + name('i', i) + ' ' + id + ' ' + image.camera->id + '\n';
      stations += id + ' ';
      if (image.keyword != "ext-ori-quaternion") turning_stations += id + ' ';
      images_.push_back(std::move(image));
    }
    add_file("image", "image.txt", image_text);
    add_file("image-geometry", "eo.txt", eo_text + "stop-dep\n");
    if (spec_.triples == 0) return;
    std::string text = "stop-dep 0 " + std::to_string(spec_.triples) + '\n';
    for (std::size_t i = 0; i < spec_.triples; ++i) text += " 0 1e31 0 1e31 0 1e31\n";
    add_file("pos-cor", "position.txt", "position " + stations + text);
    if (!turning_stations.empty()) {
      add_file("att-cor", "attitude.txt", "attitude " + turning_stations + text);
    }
  }

  // Fills in the true parameters; returns the rest of the record with approximate ones.
  std::string make_orientation(Image& image, double time) {
    const bool quaternion = image.keyword == "ext-ori-quaternion";
    const double noise = spec_.triples > 0 ? 0.0 : 0.005;
    const Vec3 centre = image.centre - correction_at("position", time);
    const Vec3 attitude = quaternion ? Vec3{} : correction_at("attitude", time);
    std::vector<double> rotation = rotation_params(image.keyword, image.r);
    for (std::size_t k = 0; k < 3; ++k) rotation[k] -= attitude[k];
    image.params.assign(centre.begin(), centre.end());
    image.params.insert(image.params.end(), rotation.begin(), rotation.end());
    Vec3 near = centre;
    for (double& v : near) v += 4 * noise * noise_.normal();
    for (double& v : rotation) {
      v = (v + noise * noise_.normal()) * (quaternion ? 1 : 200 / std::numbers::pi);
    }
    const std::vector<double> sdevs(rotation.size(), spec_.triples > 0 ? 1e-31 : 1e31);
    return (quaternion ? "" : " gon") + numbers({time}) + numbers(near) +
           numbers({sdevs[0], sdevs[1], sdevs[2]}) + numbers(rotation) + numbers(sdevs);
  }

  // The collinearity equations as x = -c r0'(X - Xo) / r2'(X - Xo), or their parallel projection.
  std::string make_linear(Image& image) {
    const bool dlt = image.keyword == "dlt";
    const Mat3 axes = transposed(image.r);
    const double last = dlt ? -1.0 / dot(axes[2], image.centre) : 0.0;
    for (std::size_t row = 0; row < (dlt ? 3U : 2U); ++row) {
      const Vec3 l = (!dlt ? kFocal / kDistance : row < 2 ? -kFocal * last : last) * axes[row];
      if (!dlt) image.params.push_back(row == 0 ? 1e-3 : -2e-3);
      image.params.insert(image.params.end(), l.begin(), l.end());
      if (dlt && row < 2) image.params.push_back(-dot(l, image.centre));
    }
    std::string text = " 0\n";
    for (const double v : image.params) {
      text += numbers({v * (1.0 + (dlt ? 1e-4 : 1e-3) * noise_.normal()), 1e31});
    }
    return text;
  }

  void make_points() {
    const std::size_t control = 3 + spec_.points / 8;
    std::string text = "indiv-sdev\n";
    for (std::size_t i = 0; i < spec_.points; ++i) {
      Vec3 point = {noise_.uniform(-1.2, 1.2), noise_.uniform(-1.2, 1.2),
                    noise_.uniform(-spec_.relief, spec_.relief)};
      const bool on_line = spec_.control_on_line && i < control;
      if (on_line) point = {point[0], 0.5 * point[0], -0.25 * point[0]};
      points_.push_back(point);
      project_.truth[name('p', i)].assign(point.begin(), point.end());
      Vec3 near = point;
      const double noise = on_line ? 0.0 : i < control ? kSigmaControl : 0.05 * spec_.relief;
      for (double& v : near) v += noise * noise_.normal();
      const double sdev = i < control ? kSigmaControl : 1e31;
      text += name('p', i) + numbers(near) + numbers({sdev, sdev, sdev});
    }
    add_file("obj-crds", "obj.txt", text + "stop-dep\n");
    add_file("ctrl-supp", "cs.txt",
             name('p', control) + " ch xyz\n" + name('p', control + 1) + " ch xyz\nstop-dep\n");
  }

  // Every parameter is observed as 0, with a standard deviation of some 20 um in the image.
  void make_ap_sets() {
    std::string text;
    for (std::size_t i = 0; i < spec_.ap_sets.size(); ++i) {
      std::unique_ptr<APSet> set = make_ap_set(lookup_keyword(spec_.ap_sets[i]));
      text += spec_.ap_sets[i] + ' ' + name('s', i) + ' ' + camera(i).id + '\n';
      if (auto* const grid = dynamic_cast<APSetP*>(set.get())) {
        grid->grid_width = 0.015;
        text += " 15\n";
      }
      DesignBlock block;
      set->get_derivs({0.011, 0.007, -kFocal}, block);
      for (std::int32_t k = 0; k < set->num_ap(); ++k) {
        const double effect = std::max(std::fabs(block.a[0][k]), std::fabs(block.a[1][k]));
        set->value(k) = 20e-6 / effect * noise_.normal();
        project_.truth[name('s', i)].push_back(set->value(k));
        text += numbers({0, 20e-6 / effect});
      }
      camera(i).ap_sets.push_back(set.get());
      sets_.push_back(std::move(set));
    }
    if (!sets_.empty()) add_file("ap-set", "ap.txt", text + "stop-dep\n");
  }

  void measure() {
    std::string text;
    for (std::size_t i = 0; i < images_.size(); ++i) {
      const Camera& camera = *images_[i].camera;
      const Pair unit = camera.sdev_to_image({1, 1});
      text += name('i', i) + " 1\n";
      for (std::size_t p = 0; p < points_.size(); ++p) {
        Pair xy = images_[i].project(points_[p]);
        const Pair correction = camera.get_corrections({xy[0], xy[1], -kFocal});
        xy[0] += 1e-4 + correction[0] + kSigmaImage * noise_.normal();
        xy[1] += -2e-4 + correction[1] + spec_.y_noise * kSigmaImage * noise_.normal();
        const Pair measured = camera.image_to_pixel(xy);
        text += ' ' + name('p', p) +
                numbers({measured[0], measured[1], kSigmaImage / unit[0],
                         spec_.y_noise * kSigmaImage / unit[1]});
      }
      text += "-1\n";
    }
    add_file("image-crds", "crds.txt", text + "stop-dep\n");
  }

  const SyntheticSpec& spec_;
  Noise noise_;
  SyntheticProject project_;
  std::string control_;
  OwnedList<Camera> cameras_;
  std::vector<Image> images_;
  std::vector<Vec3> points_;
  std::vector<std::unique_ptr<APSet>> sets_;
};

}  // namespace

SyntheticProject make_synthetic_project(const SyntheticSpec& spec) {
  return Simulation(spec).run();
}

}  // namespace vorn::test
