// vorn new: a commented project that runs, from a camera and tables of what was measured.

#include <array>
#include <charconv>
#include <filesystem>
#include <map>
#include <set>

#include "app/command.h"
#include "app/exchange/output_file.h"
#include "app/table_file.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

using exchange::ExchangeError;
using exchange::OutputFile;

struct MeasuredPoint {
  std::string id;
  double column = 0.0;
  double row = 0.0;
};

struct ControlPoint {
  std::array<double, 3> xyz{};
  std::array<double, 3> std_devs{};  // 0: without error
  bool is_check = false;
};

using Orientation = std::array<double, 6>;  // centre, angles in degrees

// The tables, by identifiers; images in the order of their first point.
struct Measurements {
  std::vector<std::string> images;
  std::map<std::string, std::vector<MeasuredPoint>> points;
  std::map<std::string, ControlPoint> control;
  std::map<std::string, Orientation> orientations;
};

void read_image_points(const std::string& path, Measurements& all) {
  const exchange::Source source(path, exchange::Source::Kind::text);
  std::set<std::pair<std::string, std::string>> known;
  for (const TableLine& line : lines_of_table(source, "image")) {
    const std::string image = line.id(0, "the image");
    const MeasuredPoint point{line.id(1, "the point"), line.number(2, "the column"),
                              line.number(3, "the row")};
    if (!known.emplace(image, point.id).second) {
      line.fail(line.text(1), "point " + point.id + " was measured in image " + image + " before");
    }
    if (all.points.find(image) == all.points.end()) all.images.push_back(image);
    all.points[image].push_back(point);
  }
  if (all.images.empty()) throw ExchangeError(path + ": there is no image point");
}

void read_control(const std::string& path, Measurements& all) {
  const exchange::Source source(path, exchange::Source::Kind::text);
  for (const TableLine& line : lines_of_table(source, "point")) {
    const std::string id = line.id(0, "the point");
    ControlPoint point;
    point.xyz = {line.number(1, "X"), line.number(2, "Y"), line.number(3, "Z")};
    const std::string_view last = line.text(line.size() - 1);
    point.is_check = last == "check";
    if (!point.is_check && line.size() > 4 && !line.text(4).empty()) {
      point.std_devs = {line.positive(4, "sX"), line.positive(5, "sY"), line.positive(6, "sZ")};
    }
    if (!all.control.emplace(id, point).second) {
      line.fail(line.text(0), "point " + id + " was given before");
    }
  }
}

void read_orientations(const std::string& path, Measurements& all) {
  constexpr std::string_view kNames[] = {"X", "Y", "Z", "omega", "phi", "kappa"};
  const exchange::Source source(path, exchange::Source::Kind::text);
  for (const TableLine& line : lines_of_table(source, "image")) {
    const std::string id = line.id(0, "the image");
    Orientation values{};
    for (std::size_t k = 0; k < values.size(); ++k) values[k] = line.number(k + 1, kNames[k]);
    if (!all.orientations.emplace(id, values).second) {
      line.fail(line.text(0), "image " + id + " was given before");
    }
  }
}

class NewCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser.add_option("-o,--output", directory_, "folder of the new project, made if need be")
        ->type_name("DIR")
        ->required();
    parser.add_option("--name", name_, "name of the control file")
        ->type_name("NAME")
        ->capture_default_str();
    parser.add_option("--camera", format_, "columns and rows of the image, as 6000x4000")
        ->type_name("CxR")
        ->required();
    parser.add_option("--pixel-size", pixel_um_, "size of a pixel [um]")
        ->type_name("UM")
        ->check(CLI::PositiveNumber)
        ->required();
    parser.add_option("--focal-length", c_mm_, "principal distance c [mm]")
        ->type_name("MM")
        ->check(CLI::PositiveNumber)
        ->required();
    parser
        .add_option("--image-points", image_points_,
                    "table: image, point, column, row [pixels; the first pixel is 0, 0]")
        ->type_name("CSV")
        ->required();
    parser
        .add_option("--control", control_,
                    "table: point, X, Y, Z, and sX, sY, sZ (none: without error) or the word check")
        ->type_name("CSV")
        ->required();
    parser
        .add_option("--orientations", orientations_,
                    "table: image, X, Y, Z, omega, phi, kappa [degrees], to a few degrees")
        ->type_name("CSV")
        ->required();
    parser.add_option("--sigma", sigma_px_, "standard deviation of image coordinates [pixels]")
        ->type_name("PX")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    parser.add_flag("--calibrate", calibrate_,
                    "also adjust principal point, principal distance and lens distortion");
    parser.footer("Existing files are never replaced.");
  }

  ExitStatus run() override {
    read_format();
    Measurements all;
    read_image_points(image_points_, all);
    read_control(control_, all);
    read_orientations(orientations_, all);
    hold_against_each_other(all);
    std::filesystem::create_directories(directory_);
    write(all);
    TextWriter& out = standard_output();
    out << "wrote " << path_of(name_ + ".ctl") << ": "
        << static_cast<std::uint64_t>(all.images.size()) << " images, "
        << static_cast<std::uint64_t>(all.control.size()) << " known points\nnext: vorn check "
        << path_of(name_ + ".ctl") << "; vorn adjust " << path_of(name_ + ".ctl") << '\n';
    return kSuccess;
  }

 private:
  void read_format() {
    const std::size_t cross = format_.find('x');
    const char* const end = format_.data() + format_.size();
    const auto first = std::from_chars(format_.data(), end, columns_);
    const auto second = cross == std::string::npos
                            ? first
                            : std::from_chars(format_.data() + cross + 1, end, rows_);
    if (first.ec != std::errc() || second.ec != std::errc() || second.ptr != end ||
        first.ptr != format_.data() + cross || columns_ <= 0 || rows_ <= 0) {
      throw ExchangeError("--camera: expected columns and rows as 6000x4000, found " + format_);
    }
  }

  void hold_against_each_other(const Measurements& all) const {
    for (const std::string& image : all.images) {
      if (all.orientations.count(image) == 0) {
        throw ExchangeError(orientations_ + ": image " + image +
                            " has no approximate orientation: add a line with its position and its "
                            "angles; a few degrees and a tenth of the distance are near enough");
      }
      for (const MeasuredPoint& point : all.points.at(image)) {
        const bool inside = point.column >= -0.5 && point.column <= columns_ - 0.5 &&
                            point.row >= -0.5 && point.row <= rows_ - 0.5;
        if (inside) continue;
        throw ExchangeError(image_points_ + ": point " + point.id + " in image " + image +
                            " lies outside the " + format_ + " pixels of the camera");
      }
    }
    int measured = 0;
    for (const auto& [id, point] : all.control) {
      bool found = false;
      for (const auto& [image, points] : all.points) {
        for (const MeasuredPoint& candidate : points) found = found || candidate.id == id;
      }
      measured += found && !point.is_check ? 1 : 0;
    }
    if (measured < 3) {
      throw ExchangeError(control_ + ": " + std::to_string(measured) +
                          " control points are measured in images; position, rotation and scale "
                          "need three of them, not on a line");
    }
  }

  [[nodiscard]] std::string path_of(const std::string& file) const {
    return (std::filesystem::path(directory_) / file).string();
  }
  // Refuses what is there.
  [[nodiscard]] OutputFile create(const std::string& file) const {
    const std::string path = path_of(file);
    if (file_kind(path) != FileKind::missing) {
      throw ExchangeError(path + " exists; choose another folder or name");
    }
    return OutputFile(path);
  }

  void write(const Measurements& all) const {
    const double sigma0_um = sigma_px_ * pixel_um_;
    OutputFile control_file = create(name_ + ".ctl");
    control_file << "params          params.txt\nls-params       ls-params.txt\n"
                    "camera          camera.txt\nimage           images.txt\n"
                    "image-geometry  orientations.txt\nimage-crds      image-points.txt\n"
                    "obj-crds        object-points.txt\n";
    if (has_checks(all)) control_file << "ctrl-supp       check-points.txt\n";
    if (calibrate_) control_file << "ap-set          calibration.txt\n";
    control_file << "stop-dep\n\nKeyword and file of each part. Nothing is read behind stop-dep.\n";
    control_file.close();

    OutputFile params = create("params.txt");
    params << "0\n0 0 0 0\n0 0 0 0 0\n0 0\n5 5\nnone none none none\n\n"
              "Listings, all off; rows and columns of grids of effects; files of the normal "
              "equations.\n";
    params.close();
    OutputFile settings = create("ls-params.txt");
    settings << sigma0_um * 1e-6 << "\n50\n1 1 1 1\n0.001 0.001 1e-6 1e-8\n"
             << "1e-30 1e30  1e-31 1e31\n1e10 1e10\n0.8\n1.0 0.001\n1.96\n1e-4\n"
             << 3.0 * sigma0_um << "\nm\ndeg\nnative\n\n"
             << "sigma 0 a priori [m]; most iterations; what convergence looks at; its limits [m, "
                "m, rad, -];\nstandard deviations that mean fixed and free; ...; residuals listed "
                "from [um].\n";
    settings.close();
    OutputFile camera = create("camera.txt");
    camera << "camera-ccd  camera  new\n  " << c_mm_ << "\n  0 0\n  " << columns_ << ' ' << rows_
           << "\n  " << pixel_um_ << ' ' << pixel_um_
           << "\nstop-dep\n\nc [mm]; principal point [mm]; columns and rows; pixel size [um].\n";
    camera.close();
    if (calibrate_) write_calibration();
    write_images(all);
    write_points(all);
  }

  void write_calibration() const {
    OutputFile file = create("calibration.txt");
    file << "australis  calibration  camera\n"
            "0 1e31\n0 1e31\n0 1e31\n0 1e31\n0 1e31\n0 1e-31\n0 1e31\n0 1e31\n0 1e-31\n0 1e-31\n"
            "stop-dep\n\ndxp, dyp, dc, K1, K2, K3, P1, P2, B1, B2: value and standard deviation; "
            "1e31 free, 1e-31 fixed.\n";
    file.close();
  }

  void write_images(const Measurements& all) const {
    OutputFile images = create("images.txt");
    OutputFile orientations = create("orientations.txt");
    OutputFile points = create("image-points.txt");
    orientations << "common-type\next-ori-opk-rot deg 0 0\n1e31 1e31 1e31  1e31 1e31 1e31\n";
    for (const std::string& image : all.images) {
      images << "image-frame " << image << ' ' << image << " camera\n";
      orientations << image;
      for (const double value : all.orientations.at(image)) orientations << ' ' << value;
      orientations << '\n';
      points << image << " 1\n";
      for (const MeasuredPoint& point : all.points.at(image)) {
        points << "  " << point.id << ' ' << point.column << ' ' << point.row << "  " << sigma_px_
               << ' ' << sigma_px_ << '\n';
      }
      points << "-1\n";
    }
    images << "stop-dep\n\nType, image, its orientation, its camera.\n";
    orientations << "stop-dep\n\nImage, X, Y, Z, omega, phi, kappa; all free (1e31).\n";
    points << "stop-dep\n\nPoint, column, row and their standard deviations [pixels].\n";
    images.close();
    orientations.close();
    points.close();
  }

  static bool has_checks(const Measurements& all) {
    for (const auto& [id, point] : all.control) {
      if (point.is_check) return true;
    }
    return false;
  }

  void write_points(const Measurements& all) const {
    OutputFile points = create("object-points.txt");
    points << "indiv-sdev\n";
    for (const auto& [id, point] : all.control) {
      points << id;
      for (const double value : point.xyz) points << ' ' << value;
      for (const double sd : point.std_devs) {
        if (point.is_check) {
          points << " 1e31";
        } else if (sd > 0.0) {
          points << ' ' << sd;
        } else {
          points << " 1e-31";
        }
      }
      points << '\n';
    }
    points << "stop-dep\n\nPoint, X, Y, Z and their standard deviations; 1e-31 fixed, 1e31 free. "
              "All other\npoints are intersected from their rays.\n";
    points.close();
    if (!has_checks(all)) return;
    OutputFile checks = create("check-points.txt");
    for (const auto& [id, point] : all.control) {
      if (point.is_check) checks << id << " ch xyz\n";
    }
    checks << "stop-dep\n";
    checks.close();
  }

  std::string directory_;
  std::string name_ = "project";
  std::string format_;
  std::int32_t columns_ = 0;
  std::int32_t rows_ = 0;
  double pixel_um_ = 0.0;
  double c_mm_ = 0.0;
  double sigma_px_ = 0.5;
  bool calibrate_ = false;
  std::string image_points_;
  std::string control_;
  std::string orientations_;
};

}  // namespace

std::unique_ptr<Command> make_new_command() { return std::make_unique<NewCommand>(); }

}  // namespace vorn::app
