// A target per reader: reads the text, checks what the list promises, and lists what was read.

#include <array>
#include <string_view>

#include "driver/bundle_project.h"
#include "fuzz/fuzz_target.h"
#include "geometry/eo_file.h"
#include "lsq/ls_params.h"

namespace vorn::fuzz {
namespace {

constexpr std::string_view kCameras =
    "camera-frame f x 150 0 0 230 230\n"
    "camera-ccd c x 28 (0.1,-0.1) 6000 4000 6 6\n"
    "camera-ccd-tr t x 28 0 0 6000 4000 6 6\n"
    "camera-pushbroom p x 62 0 0 12000 6.5 6.5 29\n"
    "stop-dep\n";
constexpr std::string_view kImages =
    "image-frame 1 1 f image-frame 2 2 c image-frame 3 3 t image-frame 4 4 p stop-dep\n";
constexpr std::string_view kPoints =
    "indiv-sdev\n"
    "a 1 2 3 0.1 0.1 0.1\n"
    "b 1 2 3 1e31 1e31 1e31\n"
    "c 1 2 3 1e-31 1e-31 1e-31\n"
    "stop-dep\n";

template <class Read>
bool reads(std::string_view text, Read read) {
  TokenReader in(text);
  const int result = read(in);
  require(result == 1 || result == -1, "a reader gives 1 or -1");
  return result == 1;
}

// An identifier finds its first object, as if the list were searched from the front.
template <class T>
void check_list(const OwnedList<T>& list) {
  constexpr std::int32_t kChecked = 64;
  std::int32_t count = 0;
  for (std::int32_t slot = 0; slot < list.num_slots(); ++slot) {
    if (list[slot] == nullptr) continue;
    ++count;
    if (count > kChecked) continue;
    const std::int32_t first = list.slot_of(list[slot]->id);
    require(first >= 0 && first <= slot, "an identifier finds its first slot");
    require(list[first]->id == list[slot]->id, "a found object carries the identifier");
  }
  require(count == list.count(), "the count is that of the slots in use");
}

void list_object(AdjObject& object) {
  object.index = 0;
  object.init_params();
  Vector corrections(static_cast<std::int32_t>(object.num_params()));
  corrections.zero();
  object.print_changes(standard_output(), corrections);
  object.print_results(standard_output());
  object.print_significance(standard_output());
  object.print_unknowns(standard_output());
  object.check_convergence(corrections);
}

bool fuzz_options(std::string_view text) {
  BundleProject project;
  reads(text, [&](TokenReader& in) { return project.options.read_options(in); });
  project.options.print_options(standard_output());
  return true;
}

bool fuzz_ls_params(std::string_view text) {
  LSParams settings;
  reads(text, [&](TokenReader& in) { return settings.read(in); });
  settings.print(standard_output());
  return true;
}

bool fuzz_camera(std::string_view text) {
  BundleProject project;
  reads(text, [&](TokenReader& in) { return read_camera_file(in, project.cameras); });
  check_list(project.cameras);
  for (const Camera& camera : project.cameras) {
    camera.pixel_to_image(camera.image_to_pixel({1e-3, -2e-3}));
    camera.image_to_camera({1e-3, -2e-3});
  }
  project.print_cameras(standard_output());
  project.write_cameras(standard_output());
  return true;
}

void read_cameras(BundleProject& project) {
  TokenReader in(kCameras);
  require(read_camera_file(in, project.cameras) == 1, "the cameras are readable");
}

bool fuzz_image(std::string_view text) {
  BundleProject project;
  read_cameras(project);
  reads(text,
        [&](TokenReader& in) { return read_image_file(in, project.images, project.cameras); });
  check_list(project.images);
  for (const BundleImage& image : project.images) require(image.camera != nullptr, "has a camera");
  return true;
}

bool fuzz_image_crds(std::string_view text) {
  BundleProject project;
  read_cameras(project);
  reads(kImages,
        [&](TokenReader& in) { return read_image_file(in, project.images, project.cameras); });
  reads(text, [&](TokenReader& in) { return read_image_crds_file(in, project.images); });
  for (const BundleImage& image : project.images) {
    check_list(image.points);
    image.camera->write_image_coords(standard_output(), image);
  }
  project.print_image_coords(standard_output());
  return true;
}

void list_points(BundleProject& project) {
  check_list(project.object_points);
  for (ObjectPoint& point : project.object_points) list_object(point);
  project.print_object_points(standard_output());
  project.write_object_points(standard_output());
  project.print_control_residuals(standard_output());
  project.print_check_points(standard_output());
}

bool fuzz_obj_crds(std::string_view text) {
  BundleProject project;
  reads(text, [&](TokenReader& in) { return read_obj_crds(in, project.object_points); });
  list_points(project);
  return true;
}

bool fuzz_ctrl_supp(std::string_view text) {
  BundleProject project;
  reads(kPoints, [&](TokenReader& in) { return read_obj_crds(in, project.object_points); });
  reads(text, [&](TokenReader& in) { return read_ctrl_supp(in, project.object_points); });
  list_points(project);
  return true;
}

bool fuzz_eo_file(std::string_view text) {
  BundleProject project;
  reads(text, [&](TokenReader& in) { return read_eo_file(in, project.image_geometries); });
  check_list(project.image_geometries);
  PointDerivs derivs;
  Vec3 image{0.0, 0.0, -0.1};
  Vec3 point{1.0, 2.0, 3.0};
  double gap = 0.0;
  const ImageGeometry* previous = nullptr;
  for (ImageGeometry& geometry : project.image_geometries) {
    list_object(geometry);
    geometry.update();
    geometry.projection(point, image);
    geometry.get_derivs(image, point, derivs);
    if (previous != nullptr) geometry.intersection(*previous, image, image, point, gap);
    previous = &geometry;
  }
  project.print_exterior_orientations(standard_output());
  project.write_exterior_orientations(standard_output());
  return true;
}

bool fuzz_ap_set(std::string_view text) {
  BundleProject project;
  read_cameras(project);
  reads(text, [&](TokenReader& in) { return read_ap_set_file(in, project.ap_sets); });
  check_list(project.ap_sets);
  for (APSet& set : project.ap_sets) {
    list_object(set);
    set.bind_to_camera(project.cameras);
    set.print_grid_effects(standard_output(), project.options, project.cameras);
  }
  for (const Camera& camera : project.cameras) camera.get_corrections({0.01, 0.02, -0.1});
  project.print_ap_sets(standard_output());
  project.write_ap_sets(standard_output());
  return true;
}

template <class Correction>
bool fuzz_corrections(std::string_view text, int (*read)(TokenReader&, OwnedList<Correction>&)) {
  OwnedList<Correction> list;
  reads(text, [&](TokenReader& in) { return read(in, list); });
  check_list(list);
  for (Correction& correction : list) {
    const TimePolynomial& polynomial = correction.polynomial;
    require(polynomial.coeffs.size() == polynomial.coeff_std_devs.size(), "one std. dev. each");
    require(polynomial.coeffs.size() <= text.size(), "triples do not outnumber the text");
    list_object(correction);
    correction.value_at(1.5);
  }
  return true;
}

bool fuzz_pos_cor(std::string_view text) {
  return fuzz_corrections<PosCorrection>(text, read_pos_correction_file);
}

bool fuzz_att_cor(std::string_view text) {
  return fuzz_corrections<AttCorrection>(text, read_att_correction_file);
}

// Names that are no files: only the control file itself is at work.
bool fuzz_control(std::string_view text) {
  if (text.find_first_of("/\\") != std::string_view::npos) return false;
  BundleProject project;
  reads(text, [&](TokenReader& in) { return project.read_control_file(in); });
  return true;
}

constexpr std::array<FuzzTarget, 12> kTargets = {{
    {"control", fuzz_control},
    {"options", fuzz_options},
    {"ls-params", fuzz_ls_params},
    {"camera", fuzz_camera},
    {"image", fuzz_image},
    {"image-crds", fuzz_image_crds},
    {"obj-crds", fuzz_obj_crds},
    {"ctrl-supp", fuzz_ctrl_supp},
    {"eo-file", fuzz_eo_file},
    {"ap-set", fuzz_ap_set},
    {"pos-cor", fuzz_pos_cor},
    {"att-cor", fuzz_att_cor},
}};

}  // namespace

std::span<const FuzzTarget> reader_targets() { return kTargets; }

}  // namespace vorn::fuzz
