// vorn simulate: the precision that a project can expect, and copies of it with simulated noise.

#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <numbers>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "app/command.h"
#include "app/exchange/output_file.h"
#include "app/exchange/source.h"
#include "app/held_run.h"
#include "app/project_copy.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

using exchange::ExchangeError;

// Normal deviates that are the same everywhere (Box and Muller 1958); the library's own differ from
// one system to the next.
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : engine_(seed) {}
  double normal() {
    constexpr double kTwoPi = 2.0 * std::numbers::pi;
    const double u = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(kTwoPi * uniform());
  }

 private:
  // In (0, 1].
  double uniform() { return (static_cast<double>(engine_() >> 11U) + 1.0) * 0x1p-53; }

  std::mt19937_64 engine_;
};

// Image coordinates of a point as its camera measures them; not finite where it cannot: a line
// camera has no measurement half a line away from its line.
Pair measured_at(const Camera& camera, const Pair& image) {
  constexpr double kSame = 1e-9;  // [m]
  const Pair measured = camera.image_to_pixel(image);
  const Pair back = camera.pixel_to_image(measured);
  if (std::hypot(back[0] - image[0], back[1] - image[1]) < kSame) return measured;
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  return {kNone, kNone};
}

// What is true of a project: its values, and where its points are in the images [m].
class Truth {
 public:
  explicit Truth(BundleProject& project) {
    for (BundleImage& image : project.images) {
      for (ImagePoint& point : image.points) {
        const ObjectPoint* const object = object_point_of(point, project.object_points);
        if (object == nullptr) continue;
        points_.push_back({&image, &point, image.object_to_image(object->xyz)});
      }
    }
    add_observed(project.object_points);
    add_observed(project.image_geometries);
    add_observed(project.ap_sets);
    add_observed(project.pos_corrections);
    add_observed(project.att_corrections);
  }

  // Measurements become what would be measured without noise, where the camera can.
  void replace_measurements() const {
    for (const TruePoint& point : points_) {
      const Pair measured = measured_at(*point.image->camera, point.place);
      if (!std::isfinite(measured[0])) continue;
      point.measured->x = measured[0];
      point.measured->y = measured[1];
    }
  }
  // Gives all that is observed its true values with noise of its standard deviations. Number of
  // image points that there cannot be.
  std::int64_t observe(Noise* noise) const {
    const auto error = [noise] { return noise == nullptr ? 0.0 : noise->normal(); };
    std::int64_t lost = 0;
    for (const TruePoint& point : points_) {
      const Camera& camera = *point.image->camera;
      const Pair sd = camera.sdev_to_image({point.measured->sx, point.measured->sy});
      Pair image = point.place;
      for (std::size_t k = 0; k < 2; ++k) image[k] += sd[k] * error();
      const Pair measured = measured_at(camera, image);
      point.measured->x = measured[0];
      point.measured->y = measured[1];
      lost += std::isfinite(measured[0]) ? 0 : 1;
    }
    for (const auto& [record, value] : observed_) {
      *record->value = value + *record->std_dev * error();
    }
    return lost;
  }

 private:
  struct TruePoint {
    const BundleImage* image;
    ImagePoint* measured;
    Pair place;
  };

  template <class Object>
  void add_observed(const OwnedList<Object>& objects) {
    for (const AdjObject& object : objects) {
      for (std::uint32_t k = 0; k < object.num_params(); ++k) {
        const ParamRecord& record = object.param(static_cast<std::int32_t>(k));
        if (record.state == ParamState::observed) observed_.emplace_back(&record, *record.value);
      }
    }
  }

  std::vector<TruePoint> points_;
  std::vector<std::pair<const ParamRecord*, double>> observed_;
};

// Standard deviations of unknowns of one kind: parameter of an object type, or of one set.
struct Expected {
  std::string unit;
  std::int32_t count = 0;
  double squares = 0.0;
  double largest = 0.0;
  std::string at;

  void add(double sd, const std::string& id) {
    ++count;
    squares += sd * sd;
    if (sd <= largest) return;
    largest = sd;
    at = id;
  }
};

// In the order in which the first of each kind comes.
class ExpectedTable {
 public:
  void add(const std::string& kind, const std::string& unit, double sd, const std::string& id) {
    if (!(sd > 0.0) || !std::isfinite(sd)) return;
    const auto [place, is_new] = places_.emplace(kind, rows_.size());
    if (is_new) {
      rows_.emplace_back(kind, Expected{});
      rows_.back().second.unit = unit;
    }
    rows_[place->second].second.add(sd, id);
  }
  void print(TextWriter& out) const {
    out << left_aligned("", 28) << "number       rms      largest  unit  at\n";
    for (const auto& [kind, row] : rows_) {
      out << "  " << left_aligned(kind, 26) << fixed(0, 6)(row.count) << ' '
          << scientific(2, 11)(std::sqrt(row.squares / row.count)) << ' '
          << scientific(2, 11)(row.largest) << "  " << left_aligned(row.unit, 5) << ' ' << row.at
          << '\n';
    }
  }

 private:
  std::vector<std::pair<std::string, Expected>> rows_;
  std::map<std::string, std::size_t> places_;
};

class SimulateCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser.add_option("PROJECT", project_, "control file of the project")->required();
    parser
        .add_option("--copies", copies_,
                    "write so many copies of the project whose observations are simulated")
        ->type_name("N")
        ->check(CLI::Range(1, 10000));
    parser
        .add_option("-o,--output", directory_,
                    "folder of the copies, made if need be: truth, copy-1, copy-2, ...")
        ->type_name("DIR");
    parser.add_option("--seed", seed_, "of the noise; copy k has seed + k - 1")
        ->type_name("SEED")
        ->capture_default_str();
    parser.add_flag("--adjusted", adjusted_, "take the adjusted values for true");
    parser.add_flag("--force", force_, "replace copies that are there");
    parser.footer(
        "The approximate values are taken for true. Of what was observed only the standard "
        "deviations count, and where there are no approximate values of a point, its rays. Exit "
        "status: 0 done, 1 the project has no results to expect, 2 wrong usage.");
  }

  ExitStatus run() override {
    if ((copies_ > 0) == directory_.empty()) {
      error_output() << "vorn simulate: --copies and --output go together\n";
      return kWrongUsage;
    }
    for (std::int32_t copy = 0; copy <= copies_ && copies_ > 0 && !force_; ++copy) {
      if (file_kind(folder_of(copy)) == FileKind::missing) continue;
      throw ExchangeError(folder_of(copy) + " is there; --force replaces what it holds");
    }
    std::optional<Truth> truth;
    const auto held = run_in_memory(project_, {}, adjusted_ ? -1 : 0, {.prior = true},
                                    [&truth](BundleProject& project) {
                                      truth.emplace(project);
                                      truth->replace_measurements();
                                    });
    if (!held) return kFailed;
    print_precision(held->results);
    if (copies_ == 0) return kSuccess;
    check_copies(*held->project);
    write_copies(*held->project, *truth);
    return kSuccess;
  }

 private:
  static void print_precision(const QualityResults& results) {
    TextWriter& out = standard_output();
    out << "images " << results.statistics.images << ", points " << results.statistics.points
        << ", image points " << results.statistics.image_points << ", redundancy "
        << results.statistics.redundancy << "\nexpected standard deviations, sigma 0 "
        << fixed(2)(results.settings.sigma0_prior * 1e6) << " um a priori\n";
    ExpectedTable table;
    constexpr const char* kPointCoordinates[] = {"point X", "point Y", "point Z"};
    for (const PointResult& row : results.points) {
      for (std::size_t k = 0; k < 3; ++k) {
        table.add(kPointCoordinates[k], "m", row.sd(k), row.point->id);
      }
    }
    const UnitAngle& angle = ls_params().unit_angles;
    for (const ParameterResult& row : results.parameters) {
      const AdjObject& object = *row.unknown.object;
      const std::string unit = parameter_unit(row.unknown);
      const bool is_angle = unit == "rad";
      // Sets and corrections are few, and each parameter of them is of interest.
      const bool is_orientation = object_type_of(object) == ObjectType::orientation;
      table.add((is_orientation ? "orientation" : object.id) + ' ' + parameter_name(row.unknown),
                is_angle ? std::string(angle.abbreviation()) : unit,
                is_angle ? row.sd * angle.factor : row.sd, object.id);
    }
    table.print(out);
  }

  // The first one is the truth.
  [[nodiscard]] std::string folder_of(std::int32_t copy) const {
    const std::string name = copy == 0 ? "truth" : "copy-" + std::to_string(copy);
    return (std::filesystem::path(directory_) / name).string();
  }

  // Throws ExchangeError where a copy would replace files of the project itself.
  void check_copies(const BundleProject& project) const {
    for (std::int32_t copy = 0; copy <= copies_; ++copy) {
      if (file_kind(folder_of(copy)) == FileKind::missing) continue;
      OutputFiles unwritten(OutputMode::discarded);
      write_project_copy(project, project_, folder_of(copy), unwritten);
      exchange::keep_project(project_, unwritten.paths());
    }
  }

  void write_copies(const BundleProject& project, const Truth& truth) const {
    std::int64_t lost = 0;
    for (std::int32_t copy = 0; copy <= copies_; ++copy) {
      Noise noise(seed_ + static_cast<std::uint64_t>(copy) - 1);
      lost += truth.observe(copy == 0 ? nullptr : &noise);
      std::filesystem::create_directories(folder_of(copy));
      OutputFiles outputs(OutputMode::replaced);
      write_project_copy(project, project_, folder_of(copy), outputs);
      exchange::finish(outputs);
    }
    TextWriter& out = standard_output();
    out << "wrote " << folder_of(0) << " and " << copies_ << (copies_ == 1 ? " copy" : " copies")
        << '\n';
    if (lost > 0) {
      out << "left out " << lost << " image points that fell off the line of their camera"
          << (adjusted_ ? "\n" : "; --adjusted loses fewer\n");
    }
  }

  std::string project_;
  std::int32_t copies_ = 0;
  std::string directory_;
  std::uint64_t seed_ = 1;
  bool adjusted_ = false;
  bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> make_simulate_command() { return std::make_unique<SimulateCommand>(); }

}  // namespace vorn::app
