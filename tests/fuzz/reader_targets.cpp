// A target per reader: reads the text, checks what the list promises, and lists what was read.

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

// `read(in, others...)`.
template <class Read, class... Others>
void reads(std::string_view text, Read read, Others&... others) {
  TokenReader in(text);
  const int result = read(in, others...);
  require(result == 1 || result == -1, "a reader gives 1 or -1");
}

// An identifier finds its first object, as if the list were searched from the front.
template <class T>
void check_list(const OwnedList<T>& list) {
  constexpr std::int32_t kChecked = 64;
  std::int32_t count = 0;
  for (std::int32_t slot = 0; slot < list.num_slots(); ++slot) {
    if (list[slot] == nullptr) continue;
    if (++count > kChecked) continue;
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

void fuzz_options(BundleProject& project, std::string_view text) {
  reads(text, [&](TokenReader& in) { return project.options.read_options(in); });
  project.options.print_options(standard_output());
}

void fuzz_ls_params(BundleProject&, std::string_view text) {
  LSParams settings;
  reads(text, [&](TokenReader& in) { return settings.read(in); });
  settings.print(standard_output());
}

void fuzz_camera(BundleProject& project, std::string_view text) {
  reads(text, read_camera_file, project.cameras);
  check_list(project.cameras);
  for (const Camera& camera : project.cameras) {
    camera.pixel_to_image(camera.image_to_pixel({1e-3, -2e-3}));
    camera.image_to_camera({1e-3, -2e-3});
  }
  project.print_cameras(standard_output());
  project.write_cameras(standard_output());
}

void fuzz_image(BundleProject& project, std::string_view text) {
  reads(kCameras, read_camera_file, project.cameras);
  reads(text, read_image_file, project.images, project.cameras);
  check_list(project.images);
  for (const BundleImage& image : project.images) require(image.camera != nullptr, "has a camera");
}

void fuzz_image_crds(BundleProject& project, std::string_view text) {
  fuzz_image(project, kImages);
  reads(text, read_image_crds_file, project.images);
  for (const BundleImage& image : project.images) {
    check_list(image.points);
    image.camera->write_image_coords(standard_output(), image);
  }
  project.print_image_coords(standard_output());
}

void fuzz_obj_crds(BundleProject& project, std::string_view text) {
  reads(text, read_obj_crds, project.object_points);
  check_list(project.object_points);
  for (ObjectPoint& point : project.object_points) list_object(point);
  project.print_object_points(standard_output());
  project.write_object_points(standard_output());
  project.print_control_residuals(standard_output());
  project.print_check_points(standard_output());
}

void fuzz_ctrl_supp(BundleProject& project, std::string_view text) {
  reads(kPoints, read_obj_crds, project.object_points);
  reads(text, read_ctrl_supp, project.object_points);
  fuzz_obj_crds(project, "indiv-sdev stop-dep");
}

void fuzz_eo_file(BundleProject& project, std::string_view text) {
  reads(text, read_eo_file, project.image_geometries);
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
}

void fuzz_ap_set(BundleProject& project, std::string_view text) {
  reads(kCameras, read_camera_file, project.cameras);
  reads(text, read_ap_set_file, project.ap_sets);
  check_list(project.ap_sets);
  for (APSet& set : project.ap_sets) {
    list_object(set);
    set.bind_to_camera(project.cameras);
    set.print_grid_effects(standard_output(), project.options, project.cameras);
  }
  for (const Camera& camera : project.cameras) camera.get_corrections({0.01, 0.02, -0.1});
  project.print_ap_sets(standard_output());
  project.write_ap_sets(standard_output());
}

template <class Correction>
void check_corrections(OwnedList<Correction>& list, std::string_view text) {
  check_list(list);
  for (Correction& correction : list) {
    const TimePolynomial& polynomial = correction.polynomial;
    require(polynomial.coeffs.size() == polynomial.coeff_std_devs.size(), "one std. dev. each");
    require(polynomial.coeffs.size() <= text.size(), "triples do not outnumber the text");
    list_object(correction);
    correction.value_at(1.5);
  }
}

void fuzz_pos_cor(BundleProject& project, std::string_view text) {
  reads(text, read_pos_correction_file, project.pos_corrections);
  check_corrections(project.pos_corrections, text);
}

void fuzz_att_cor(BundleProject& project, std::string_view text) {
  reads(text, read_att_correction_file, project.att_corrections);
  check_corrections(project.att_corrections, text);
}

// Names that are no files: only the control file itself is at work.
void fuzz_control(BundleProject& project, std::string_view text) {
  if (text.find_first_of("/\\") != std::string_view::npos) return;
  reads(text, [&](TokenReader& in) { return project.read_control_file(in); });
}

template <void (*kFuzz)(BundleProject&, std::string_view)>
bool with_project(std::string_view text) {
  BundleProject project;
  kFuzz(project, text);
  return true;
}

constexpr FuzzTarget kTargets[] = {
    {"control", with_project<fuzz_control>},     {"options", with_project<fuzz_options>},
    {"ls-params", with_project<fuzz_ls_params>}, {"camera", with_project<fuzz_camera>},
    {"image", with_project<fuzz_image>},         {"image-crds", with_project<fuzz_image_crds>},
    {"obj-crds", with_project<fuzz_obj_crds>},   {"ctrl-supp", with_project<fuzz_ctrl_supp>},
    {"eo-file", with_project<fuzz_eo_file>},     {"ap-set", with_project<fuzz_ap_set>},
    {"pos-cor", with_project<fuzz_pos_cor>},     {"att-cor", with_project<fuzz_att_cor>},
};

}  // namespace

std::span<const FuzzTarget> reader_targets() { return kTargets; }

}  // namespace vorn::fuzz
