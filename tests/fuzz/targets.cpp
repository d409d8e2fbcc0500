// A target per reader, targets of tokens and numbers, and one of whole projects.

#include <cmath>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "driver/run.h"
#include "fuzz/fuzz_target.h"
#include "geometry/eo_file.h"
#include "lsq/ls_params.h"
#include "support/temp_dir.h"
#include "support/text_reference.h"

namespace vorn::fuzz {
namespace {

// Readers: read the text, check what lists promise, and list what was read.

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

// Also calls what a run calls for each object.
template <class T>
void list_unknowns(OwnedList<T>& list) {
  TextWriter& out = standard_output();
  check_list(list);
  for (T& object : list) {
    object.index = 0;
    object.init_params();
    Vector corrections(static_cast<std::int32_t>(object.num_params()));
    corrections.zero();
    object.print_changes(out, corrections);
    object.print_results(out);
    object.print_significance(out);
    object.print_unknowns(out);
    object.check_convergence(corrections);
  }
}

template <class Correction>
void list_corrections(OwnedList<Correction>& list, std::size_t size) {
  list_unknowns(list);
  for (const Correction& correction : list) {
    const TimePolynomial& polynomial = correction.polynomial;
    require(polynomial.coeffs.size() == polynomial.coeff_std_devs.size(), "one std. dev. each");
    require(polynomial.coeffs.size() <= size, "triples do not outnumber the text");
    correction.value_at(1.5);
  }
}

void list_cameras_and_images(BundleProject& project) {
  check_list(project.cameras);
  check_list(project.images);
  for (const Camera& camera : project.cameras) {
    camera.pixel_to_image(camera.image_to_pixel({1e-3, -2e-3}));
    camera.image_to_camera({1e-3, -2e-3});
  }
  for (const BundleImage& image : project.images) {
    require(image.camera != nullptr, "an image has a camera");
    check_list(image.points);
    image.camera->write_image_coords(standard_output(), image);
  }
}

void list_geometries_and_sets(BundleProject& project) {
  list_unknowns(project.image_geometries);
  list_unknowns(project.ap_sets);
  PointDerivs derivs;
  Vec3 image{0.0, 0.0, -0.1};
  Vec3 point{1.0, 2.0, 3.0};
  double gap = 0.0;
  const ImageGeometry* previous = nullptr;
  for (ImageGeometry& geometry : project.image_geometries) {
    geometry.update();
    static_cast<void>(geometry.projection(point, image));
    static_cast<void>(geometry.get_derivs(image, point, derivs));
    if (previous != nullptr) {
      static_cast<void>(geometry.intersection(*previous, image, image, point, gap));
    }
    previous = &geometry;
  }
  for (APSet& set : project.ap_sets) {
    static_cast<void>(set.bind_to_camera(project.cameras));
    set.print_grid_effects(standard_output(), project.options, project.cameras);
  }
}

using Read = std::function<int(BundleProject& project, TokenReader& in)>;

// Reads into a project with some cameras, then lists the project.
bool fuzz(const Read& read, std::string_view text) {
  BundleProject project;
  TokenReader cameras(
      "camera-frame f x 150 0 0 230 230\n"
      "camera-ccd c x 28 (0.1,-0.1) 6000 4000 6 6\n"
      "camera-ccd-tr t x 28 0 0 6000 4000 6 6\n"
      "camera-pushbroom p x 62 0 0 12000 6.5 6.5 29\n");
  require(read_camera_file(cameras, project.cameras) == 1, "what a target begins with is read");
  TokenReader in(text);
  const int result = read(project, in);
  require(result == 1 || result == -1, "a reader gives 1 or -1");
  list_geometries_and_sets(project);
  list_cameras_and_images(project);
  list_unknowns(project.object_points);
  list_corrections(project.pos_corrections, text.size());
  list_corrections(project.att_corrections, text.size());
  TextWriter& out = standard_output();
  project.options.print_options(out);
  ls_params().print(out);
  project.print_cameras(out);
  project.print_image_coords(out);
  project.print_ap_sets(out);
  project.print_exterior_orientations(out);
  project.print_object_points(out);
  project.print_control_residuals(out);
  project.print_check_points(out);
  project.write_cameras(out);
  project.write_ap_sets(out);
  project.write_exterior_orientations(out);
  project.write_object_points(out);
  ls_params() = LSParams();
  return true;
}

// Names that are no files: only the control file itself is at work.
bool fuzz_control(std::string_view text) {
  if (text.find_first_of("/\\") != std::string_view::npos) return false;
  return fuzz(&BundleProject::read_control_file, text);
}

int read_crds(BundleProject& p, TokenReader& in) {
  TokenReader images("image-frame 1 1 f image-frame 2 2 c image-frame 3 3 t image-frame 4 4 p");
  require(read_image_file(images, p.images, p.cameras) == 1, "what a target begins with is read");
  return read_image_crds_file(in, p.images);
}

int read_roles(BundleProject& p, TokenReader& in) {
  TokenReader points(
      "indiv-sdev a 1 2 3 .1 .1 .1 b 1 2 3 1e31 1e31 1e31 c 1 2 3 1e-31 1e-31 1e-31");
  require(read_obj_crds(points, p.object_points) == 1, "what a target begins with is read");
  return read_ctrl_supp(in, p.object_points);
}

FuzzTarget target(std::string_view name, const Read& read) {
  return {name, [read](std::string_view text) { return fuzz(read, text); }};
}

// Of a reader that fills one list of the project.
template <class List>
FuzzTarget target(std::string_view name, int (*read)(TokenReader&, List&),
                  List BundleProject::*list) {
  return target(name, [=](BundleProject& p, TokenReader& in) { return read(in, p.*list); });
}

// The token reader against the standard library's streams, and number output against printf.

void require_like_a_stream(std::string_view text, std::string_view script) {
  TokenReader reader(text);
  test::ReferenceReader reference(text);
  require(test::read_protocol(reader, script) == test::read_protocol(reference, script),
          "reads succeed, store and fail as the stream's");
}

// The first 16 bytes choose the reads, the rest is the text.
bool fuzz_tokens(std::string_view text) {
  constexpr std::size_t kReads = 16;
  if (text.size() <= kReads) return false;
  std::string script(text.substr(0, kReads));
  for (char& c : script) c = "wibcsd"[static_cast<unsigned char>(c) % 6];
  require_like_a_stream(text.substr(kReads), script);
  return true;
}

bool fuzz_lists(std::string_view text) {
  require_like_a_stream(text, "ptptptptptptptpt");
  return true;
}

// One byte each for notation, precision and width, then the bits of the number.
bool fuzz_number_format(std::string_view text) {
  if (text.size() < 11) return false;
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const NumberFormat format{static_cast<Notation>(byte(0) % 3), byte(1) % 18, byte(2) % 32,
                            (byte(0) & 0x80U) != 0};
  double value = 0.0;
  std::memcpy(&value, text.data() + 3, sizeof value);
  // printf tells the sign of what is no number, too; one text for both will do.
  if (std::isnan(value) && format.show_plus) return false;
  require(test::written_number(value, format) == test::printed_number(value, format),
          "a number is written as printf writes it");
  return true;
}

// Whole projects: the input is the control file, then data files, each behind a line "@@name".

constexpr std::size_t kMaxSize = 12'000;
constexpr std::int32_t kMaxIterations = 4;
constexpr std::int64_t kMaxGridPoints = 200;
constexpr std::string_view kMark = "\n@@";

// Any file may turn out to be that of the least-squares parameters; the number of its iterations is
// the user's wish, which a round cannot grant.
bool iterates_too_long(std::string_view text) {
  TokenReader in(text);
  double sigma = 0.0;
  std::int32_t iterations = 0;
  in.read(sigma);
  return in.read(iterations) ? iterations > kMaxIterations : iterations != 0;
}

// Names and texts of the files of the input.
std::vector<std::pair<std::string_view, std::string_view>> files_of(std::string_view input) {
  std::vector<std::pair<std::string_view, std::string_view>> files;
  for (std::string_view name = "project.ctl";;) {
    const std::size_t end = input.find(kMark);
    const bool plain = !name.empty() && name.size() < 32 && name != "." && name != ".." &&
                       name.find('\0') == std::string_view::npos;
    if (plain) files.emplace_back(name, input.substr(0, end));
    if (end == std::string_view::npos) return files;
    input.remove_prefix(end + kMark.size());
    const std::size_t line = input.find('\n');
    name = input.substr(0, line);
    input = line == std::string_view::npos ? std::string_view() : input.substr(line + 1);
  }
}

// What a run prints only when it is asked for it.
void inspect(const BundleProject& project) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    project.unknowns[i].print_results(standard_output());
    project.unknowns[i].print_significance(standard_output());
  }
  const Options& options = project.options;
  const bool small = std::int64_t{options.grid_x} * options.grid_y <= kMaxGridPoints;
  for (const APSet& set : project.ap_sets) {
    if (small) set.print_grid_effects(standard_output(), options, project.cameras);
  }
}

// Success is claimed for finite numbers in complete files only; a failure leaves nothing but its
// report.
void require_honest(const RunSummary& summary, const test::TempDir& scratch,
                    const std::set<std::string>& earlier) {
  const bool completed = summary.result == 1 && summary.failures.empty();
  if (completed) {
    require(std::isfinite(summary.sigma0), "sigma 0 is a number");
    require(summary.ending.non_finite.iteration == 0, "all residuals are numbers");
    require(scratch.read("project.ext").ends_with("stop-dep\n"), "orientations are complete");
    require(scratch.read("project.res").ends_with("stop-dep\n"), "residuals are complete");
  }
  for (const std::string& name : summary.files.opened(true)) {
    if (earlier.count(name) > 0) continue;
    require(std::filesystem::exists(name) == completed, "results are there or not, as a whole");
  }
  for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
    if (earlier.count(entry.path().string()) > 0) continue;  // a name that the input chose
    require(!entry.path().filename().string().starts_with(".vorn-"), "no temporary file is left");
  }
}

bool fuzz_project(std::string_view input) {
  // No name leads out of the directory.
  if (input.size() > kMaxSize || input.find_first_of("/\\") != std::string_view::npos) return false;
  const auto files = files_of(input);
  for (const auto& [name, text] : files) {
    if (iterates_too_long(text)) return false;
  }
  // One directory for all rounds, empty before each of them.
  static const test::TempDir scratch;
  for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
    std::filesystem::remove_all(entry);
  }
  for (const auto& [name, text] : files) scratch.write(name, text);
  const std::filesystem::path before = std::filesystem::current_path();
  const std::string control_file = scratch.path("project.ctl");
  // What the command refuses it does not run.
  if (!find_obstacles({control_file, true}).empty()) return true;
  std::set<std::string> earlier;
  for (const auto& [name, text] : files) earlier.insert(scratch.path(name));
  const RunSummary summary = run_project({.path = control_file,
                                          .with_cameras = true,
                                          .outputs = OutputMode::replaced,
                                          .diagnose = true,
                                          .inspect = inspect});
  require(summary.result == 0 || summary.result == 1, "a run gives 0 or 1");
  require(summary.started, "a control file that exists is read");
  require_honest(summary, scratch, earlier);
  std::filesystem::current_path(before);
  ls_params() = LSParams();
  return true;
}

}  // namespace

const std::vector<FuzzTarget>& all_targets() {
  using P = BundleProject;
  static const std::vector<FuzzTarget> targets = {
      {"control", fuzz_control},
      target("options", [](P& p, TokenReader& in) { return p.options.read_options(in); }),
      target("ls-params", [](P&, TokenReader& in) { return ls_params().read(in); }),
      target("camera", read_camera_file, &P::cameras),
      target("image",
             [](P& p, TokenReader& in) { return read_image_file(in, p.images, p.cameras); }),
      target("image-crds", read_crds),
      target("obj-crds", read_obj_crds, &P::object_points),
      target("ctrl-supp", read_roles),
      target("eo-file", read_eo_file, &P::image_geometries),
      target("ap-set", read_ap_set_file, &P::ap_sets),
      target("pos-cor", read_pos_correction_file, &P::pos_corrections),
      target("att-cor", read_att_correction_file, &P::att_corrections),
      {"tokens", fuzz_tokens},
      {"lists", fuzz_lists},
      {"number-format", fuzz_number_format},
      {"project", fuzz_project},
  };
  static const std::vector<FuzzTarget> all = [] {
    std::vector<FuzzTarget> joined = targets;
    const std::vector<FuzzTarget>& exchange = exchange_targets();
    joined.insert(joined.end(), exchange.begin(), exchange.end());
    return joined;
  }();
  return all;
}

}  // namespace vorn::fuzz
