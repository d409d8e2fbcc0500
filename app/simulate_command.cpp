// vorn simulate: the precision that a project can expect, and copies of it with simulated noise.

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <random>

#include "app/command.h"
#include "app/exchange/output_file.h"
#include "app/exchange/source.h"
#include "app/held_run.h"
#include "driver/paths.h"
#include "lsq/ls_params.h"
#include "sensors/camera.h"
#include "text/file_system.h"
#include "text/keywords.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn::app {
namespace {

using exchange::ExchangeError;
using exchange::OutputFile;

// Normal deviates that are the same everywhere (Box and Muller 1958); the library's own differ from
// one system to the next.
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : engine_(seed) {}
  double normal() {
    constexpr double kTwoPi = 6.283185307179586;
    const double u = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(kTwoPi * uniform());
  }

 private:
  // In (0, 1].
  double uniform() { return (static_cast<double>(engine_() >> 11U) + 1.0) * 0x1p-53; }

  std::mt19937_64 engine_;
};

// The measured coordinates that differ from those of a point by d in the image [m]: the map is
// linear where a point stands.
Pair moved(const Camera& camera, const ImagePoint& point, const Pair& d) {
  constexpr double kStep = 0.25;  // far from the next line of a line camera
  const Pair here = camera.pixel_to_image({point.x, point.y});
  const Pair right = camera.pixel_to_image({point.x + kStep, point.y});
  const Pair down = camera.pixel_to_image({point.x, point.y + kStep});
  const double a = (right[0] - here[0]) / kStep;
  const double b = (down[0] - here[0]) / kStep;
  const double c = (right[1] - here[1]) / kStep;
  const double e = (down[1] - here[1]) / kStep;
  const double determinant = a * e - b * c;
  return {point.x + (e * d[0] - b * d[1]) / determinant,
          point.y + (a * d[1] - c * d[0]) / determinant};
}

class SimulateCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser.add_option("PROJECT", project_, "control file of the project")->required();
    parser
        .add_option("--copies", copies_,
                    "write so many copies of the project whose measurements are simulated")
        ->type_name("N")
        ->check(CLI::Range(1, 10000));
    parser
        .add_option("-o,--output", directory_,
                    "folder of the copies; each has one of its own in it")
        ->type_name("DIR");
    parser.add_option("--seed", seed_, "of the noise; copy k has seed + k - 1")
        ->type_name("SEED")
        ->capture_default_str();
    parser.footer(
        "The approximate values are taken for true; what was measured plays no part but for its "
        "standard deviations.");
  }

  ExitStatus run() override {
    if ((copies_ > 0) == directory_.empty()) {
      error_output() << "vorn simulate: --copies and --output go together\n";
      return kWrongUsage;
    }
    const auto held = run_in_memory(project_, {}, 0, {.prior = true});
    if (!held) return kFailed;
    print_precision(held->results);
    for (std::int32_t copy = 1; copy <= copies_; ++copy) write_copy(*held->project, copy);
    if (copies_ > 0) {
      standard_output() << "wrote " << copies_ << (copies_ == 1 ? " copy" : " copies") << " to "
                        << directory_ << '\n';
    }
    return kSuccess;
  }

 private:
  static void print_precision(const QualityResults& results) {
    TextWriter& out = standard_output();
    out << "images " << results.statistics.images << ", points " << results.statistics.points
        << ", image points " << results.statistics.image_points << ", redundancy "
        << results.statistics.redundancy << "\nexpected standard deviations of free coordinates, "
        << "sigma 0 " << fixed(2)(results.settings.sigma0_prior * 1e6) << " um\n"
        << "          rms           largest   at point\n";
    constexpr const char* kAxes[] = {"X", "Y", "Z"};
    for (std::size_t k = 0; k < 3; ++k) {
      double squares = 0.0;
      std::int32_t count = 0;
      const PointResult* worst = nullptr;
      for (const PointResult& row : results.points) {
        if (!(row.sd(k) > 0.0)) continue;
        squares += row.sd(k) * row.sd(k);
        ++count;
        if (worst == nullptr || row.sd(k) > worst->sd(k)) worst = &row;
      }
      if (worst == nullptr) continue;
      out << "  " << kAxes[k] << "  " << scientific(3, 12)(std::sqrt(squares / count)) << " m "
          << scientific(3, 12)(worst->sd(k)) << " m   " << worst->point->id << '\n';
    }
  }

  void write_copy(const BundleProject& project, std::int32_t copy) const {
    const PathParts parts = split_path(absolute_path(project_));
    const std::string source = parts.drive + parts.directory;
    const std::filesystem::path target =
        std::filesystem::path(directory_) / ("copy-" + std::to_string(copy));
    if (std::filesystem::exists(target)) {
      throw ExchangeError(target.string() + " exists; choose another folder");
    }
    std::filesystem::create_directories(target);
    Noise noise(seed_ + static_cast<std::uint64_t>(copy) - 1);
    FileText text;
    if (!text.load(project_)) throw ExchangeError(project_ + " cannot be read");
    TokenReader names(text.view());
    OutputFile control((target / (parts.base + ".ctl")).string());
    std::string keyword;
    std::string name;
    bool has_points = false;
    std::int32_t files = 0;
    while (names.read_word(keyword) && keyword != "stop-dep" && names.read_word(name)) {
      const Keyword kind = lookup_keyword(keyword);
      // All image coordinates stand in one file, and so do the object points.
      if (kind == Keyword::image_crds) {
        if (has_points) continue;
        has_points = true;
        name = "simulated-image-points.txt";
        write_image_points(project, noise, (target / name).string());
      } else {
        const std::filesystem::path from = std::filesystem::path(name).is_absolute()
                                               ? std::filesystem::path(name)
                                               : std::filesystem::path(source) / name;
        name = std::to_string(++files) + '-' + from.filename().string();
        std::filesystem::copy_file(from, target / name);
      }
      control << keyword << ' ' << name << '\n';
    }
    control << "stop-dep\n";
    control.close();
  }

  // True projections with noise of the standard deviations that the measurements have.
  static void write_image_points(const BundleProject& project, Noise& noise,
                                 const std::string& path) {
    OutputFile out(path);
    for (const BundleImage& image : project.images) {
      out << image.id << " 1\n";
      for (const ImagePoint& point : image.points) {
        const ObjectPoint* const object = project.object_points.find(point.id);
        if (object == nullptr) continue;
        const Camera& camera = *image.camera;
        const Pair computed = image.object_to_image(object->xyz);
        const Pair measured = camera.pixel_to_image({point.x, point.y});
        const Pair sd = camera.sdev_to_image({point.sx, point.sy});
        Pair d{};
        for (std::size_t k = 0; k < 2; ++k) {
          d[k] = computed[k] - measured[k] + sd[k] * noise.normal();
        }
        const Pair simulated = moved(camera, point, d);
        out << point.id << ' ' << simulated[0] << ' ' << simulated[1] << ' ' << point.sx << ' '
            << point.sy << '\n';
      }
      out << "-1\n";
    }
    out << "stop-dep\n";
    out.close();
  }

  std::string project_;
  std::int32_t copies_ = 0;
  std::string directory_;
  std::uint64_t seed_ = 1;
};

}  // namespace

std::unique_ptr<Command> make_simulate_command() { return std::make_unique<SimulateCommand>(); }

}  // namespace vorn::app
