// vorn new: a commented project that runs, from a camera and tables of what was measured.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <numbers>
#include <optional>
#include <set>

#include "app/command.h"
#include "app/estimation_options.h"
#include "app/exchange/project_writer.h"
#include "app/name_list.h"
#include "app/new_project.h"
#include "app/orient.h"
#include "app/table_file.h"
#include "geometry/rotations.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

using exchange::ExchangeError;

constexpr double kDegrees = 180.0 / std::numbers::pi;
constexpr std::int32_t kMaxSide = 1'000'000;  // [pixels]

std::vector<MeasuredImage> read_image_points(const std::string& path) {
  constexpr std::string_view kColumns[] = {"image", "point", "column", "row"};
  const exchange::Source source(path, exchange::Source::Kind::text);
  std::vector<MeasuredImage> images;
  std::map<std::string, std::size_t> places;
  std::set<std::pair<std::size_t, std::string>> known;
  for (const TableLine& line : lines_of_table(source, kColumns, 2)) {
    const std::string image = line.id(0, "the image");
    const MeasuredPoint point{line.id(1, "the point"), line.number(2, "the column"),
                              line.number(3, "the row")};
    const auto [place, is_new] = places.emplace(image, images.size());
    if (is_new) images.push_back({image, {}, {}, {}});
    if (!known.emplace(place->second, point.id).second) {
      line.fail("point " + point.id + " was measured in image " + image + " before");
    }
    images[place->second].points.push_back(point);
  }
  if (images.empty()) throw ExchangeError(path + ": there is no image point");
  return images;
}

std::map<std::string, GivenPoint> read_control(const std::string& path) {
  constexpr std::string_view kColumns[] = {"point", "x", "y", "z", "sx", "sy", "sz"};
  const exchange::Source source(path, exchange::Source::Kind::text);
  std::map<std::string, GivenPoint> points;
  for (const TableLine& line : lines_of_table(source, kColumns, 1)) {
    const std::string id = line.id(0, "the point");
    GivenPoint point;
    point.xyz = {line.number(1, "X"), line.number(2, "Y"), line.number(3, "Z")};
    point.is_check = line.text(line.size() - 1) == "check";
    const bool has_any = !line.text(4).empty() || !line.text(5).empty() || !line.text(6).empty();
    if (!point.is_check && has_any) {
      point.std_devs = {line.positive(4, "sX"), line.positive(5, "sY"), line.positive(6, "sZ")};
    }
    if (!points.emplace(id, point).second) line.fail("point " + id + " was given before");
  }
  return points;
}

std::map<std::string, Orient> read_orientations(const std::string& path) {
  constexpr std::string_view kColumns[] = {"image", "x", "y", "z", "omega", "phi", "kappa"};
  std::map<std::string, Orient> orientations;
  if (path.empty()) return orientations;
  const exchange::Source source(path, exchange::Source::Kind::text);
  for (const TableLine& line : lines_of_table(source, kColumns, 1)) {
    const std::string id = line.id(0, "the image");
    double values[6];
    for (std::size_t k = 0; k < 6; ++k) values[k] = line.number(k + 1, kColumns[k + 1]);
    const Orient orient{{values[0], values[1], values[2]},
                        opk_rot::matrix_from_params(
                            {values[3] / kDegrees, values[4] / kDegrees, values[5] / kDegrees})};
    if (!orientations.emplace(id, orient).second) line.fail("image " + id + " was given before");
  }
  return orientations;
}

class NewCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser.add_option("-o,--output", directory_, "folder of the new project, made if need be")
        ->type_name("DIR")
        ->required();
    parser.add_option("--name", project_.name, "name of the control file")
        ->type_name("NAME")
        ->capture_default_str();
    parser.add_option("--camera", format_, "columns and rows of the image, as 6000x4000")
        ->type_name("CxR")
        ->required();
    parser.add_option("--pixel-size", project_.pixel_um, "size of a pixel [um]")
        ->type_name("UM")
        ->check(finite_positive())
        ->required();
    parser.add_option("--focal-length", project_.c_mm, "principal distance c [mm]")
        ->type_name("MM")
        ->check(finite_positive())
        ->required();
    parser
        .add_option("--image-points", image_points_,
                    "table: image, point, column, row [pixels; the centre of the first is 0, 0]")
        ->type_name("CSV")
        ->required();
    parser
        .add_option("--control", control_,
                    "table: point, X, Y, Z, and sX, sY, sZ (none: without error) or the word check")
        ->type_name("CSV")
        ->required();
    parser
        .add_option("--orientations", orientations_,
                    "table: image, X, Y, Z, omega, phi, kappa [degrees], for images that control "
                    "does not orient; to a few degrees")
        ->type_name("CSV");
    parser.add_option("--sigma", project_.sigma_px, "standard deviation of image coordinates")
        ->type_name("PX")
        ->check(finite_positive())
        ->capture_default_str();
    parser.add_flag("--calibrate", project_.calibrate,
                    "also adjust principal point, principal distance and lens distortion");
    parser.add_flag("--force", force_, "replace files that are there");
    parser.footer(
        "Tables have commas, semicolons, tabs or blanks between their columns; a heading may be "
        "there. Exit status: 0 done, 1 a table cannot be used, 2 wrong usage.");
  }

  ExitStatus run() override {
    if (!read_format()) return kWrongUsage;
    exchange::check_project_name(project_.name);
    project_.images = read_image_points(image_points_);
    project_.points = read_control(control_);
    check_measurements();
    orient(read_orientations(orientations_));
    for (const std::string& name : project_.files()) {
      for (const std::string& table : {image_points_, control_, orientations_}) {
        if (!same_file(path_of(name), table)) continue;
        throw ExchangeError(table +
                            ": the project would overwrite it; give another folder with -o");
      }
      if (force_ || file_kind(path_of(name)) == FileKind::missing) continue;
      throw ExchangeError(path_of(name) + " is there; --force replaces it");
    }
    std::filesystem::create_directories(directory_);
    write_new_project(project_, directory_);
    print_summary();
    return kSuccess;
  }

 private:
  // "6000x4000".
  [[nodiscard]] bool read_format() {
    const char* const begin = format_.data();
    const char* const end = begin + format_.size();
    const auto columns = std::from_chars(begin, end, project_.columns);
    if (columns.ec == std::errc() && columns.ptr != end && *columns.ptr == 'x') {
      const auto rows = std::from_chars(columns.ptr + 1, end, project_.rows);
      const bool in_range = std::min(project_.columns, project_.rows) > 0 &&
                            std::max(project_.columns, project_.rows) <= kMaxSide;
      if (rows.ec == std::errc() && rows.ptr == end && in_range) return true;
    }
    error_output() << "vorn new: --camera: expected columns and rows as 6000x4000, found "
                   << format_ << '\n';
    return false;
  }

  void check_measurements() {
    std::set<std::string> measured;
    for (const MeasuredImage& image : project_.images) {
      for (const MeasuredPoint& point : image.points) {
        measured.insert(point.id);
        const bool inside = point.column >= -0.5 && point.column <= project_.columns - 0.5 &&
                            point.row >= -0.5 && point.row <= project_.rows - 0.5;
        if (inside) continue;
        throw ExchangeError(image_points_ + ": point " + point.id + " in image " + image.id +
                            " lies outside the " + format_ + " pixels of the camera");
      }
    }
    std::size_t control = 0;
    for (const auto& [id, point] : project_.points) {
      if (measured.count(id) == 0) {
        unmeasured_.push_back(id);
      } else {
        control += point.is_check ? 0U : 1U;
      }
    }
    if (control >= 3) return;
    const std::string hint =
        unmeasured_.empty() ? "" : "; no image point has the name of " + first_names(unmeasured_);
    throw ExchangeError(control_ + ": " + std::to_string(control) +
                        " control points are measured in images; position, rotation and scale "
                        "need three of them, not on a line" +
                        hint);
  }

  // Approximations of all images: those given, and from them and from control the others.
  void orient(const std::map<std::string, Orient>& given) {
    const double c_px = project_.c_mm * 1e3 / project_.pixel_um;
    std::map<std::string, Vec3> known;
    for (const auto& [id, point] : project_.points) {
      if (!point.is_check) known.emplace(id, point.xyz);
    }
    std::vector<std::vector<OrientRay>> rays;
    std::vector<std::optional<Orient>> oriented;
    for (const MeasuredImage& image : project_.images) {
      const auto found = given.find(image.id);
      oriented.push_back(found == given.end() ? std::nullopt : std::optional(found->second));
      std::vector<OrientRay>& of_image = rays.emplace_back();
      for (const MeasuredPoint& point : image.points) {
        of_image.push_back({point.id,
                            {point.column - 0.5 * (project_.columns - 1),
                             0.5 * (project_.rows - 1) - point.row, -c_px}});
      }
    }
    orient_all(rays, known, oriented);
    std::vector<std::string> open;
    for (std::size_t i = 0; i < oriented.size(); ++i) {
      MeasuredImage& image = project_.images[i];
      if (!oriented[i]) {
        open.push_back(image.id);
        continue;
      }
      image.centre = oriented[i]->centre;
      image.angles_deg = kDegrees * opk_rot::params_from_matrix(oriented[i]->rot_obj_from_img);
    }
    if (open.empty()) return;
    throw ExchangeError(
        "no approximate orientation of " + std::to_string(open.size()) + " of " +
        std::to_string(oriented.size()) + " images: " + first_names(open) +
        "; each needs four points that are control or seen in other images, or a line in a table "
        "of --orientations (position, angles to a few degrees). Where they have enough, compare "
        "names and units of the points, and camera, pixel size and c");
  }

  void print_summary() const {
    TextWriter& out = standard_output();
    std::size_t points = 0;
    for (const MeasuredImage& image : project_.images) points += image.points.size();
    const std::string control_file = path_of(project_.name + ".ctl");
    out << "wrote " << control_file << ": " << static_cast<std::uint64_t>(project_.images.size())
        << " images, " << static_cast<std::uint64_t>(points) << " image points, "
        << static_cast<std::uint64_t>(project_.points.size()) << " known points\n";
    if (!unmeasured_.empty()) out << "measured nowhere: " << first_names(unmeasured_) << '\n';
    out << "next: vorn check " << control_file << "\n      vorn adjust " << control_file
        << " --solve\n";
  }

  [[nodiscard]] std::string path_of(const std::string& file) const {
    return (std::filesystem::path(directory_) / file).string();
  }

  NewProject project_;
  std::string directory_;
  std::string format_;
  std::string image_points_;
  std::string control_;
  std::string orientations_;
  std::vector<std::string> unmeasured_;
  bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> make_new_command() { return std::make_unique<NewCommand>(); }

}  // namespace vorn::app
