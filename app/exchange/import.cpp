#include "app/exchange/import.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "app/exchange/control_list.h"
#include "app/exchange/format_table.h"
#include "app/exchange/readers.h"
#include "app/exchange/verification.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::exchange {
namespace {

namespace fs = std::filesystem;

template <Reconstruction (*Read)(const Source&)>
Reconstruction read_text(const std::string& path) {
  return Read(Source(path, Source::Kind::text));
}

struct Format {
  const char* name;
  Reconstruction (*read)(const std::string& path);
};
constexpr auto kFormats = std::to_array<Format>({
    {"colmap", read_colmap},
    {"bal", read_text<read_bal>},
    {"bundler", read_text<read_bundler>},
    {"openmvg", read_text<read_openmvg>},
    {"opensfm", read_opensfm},
    {"metashape", read_text<read_metashape>},
});

Datum find_datum(const std::string& name) {
  if (name.empty() || name == "image") return Datum::image;
  if (name == "points") return Datum::points;
  if (name == "none") return Datum::none;
  throw ExchangeError("unknown datum '" + name + "'; there are image, points, none");
}

ProjectSettings settings_of(const ImportRequest& request) {
  ProjectSettings settings;
  settings.name = request.name;
  settings.pixel_size = request.pixel_size_um / 1e6;
  settings.sigma = request.sigma_px;
  settings.datum = find_datum(request.datum);
  // Control holds what the datum would.
  if (request.datum.empty() && !request.control_list.empty()) settings.datum = Datum::none;
  set_free(settings, request.free);
  require_positive(request.pixel_size_um, "the pixel size");
  if (!request.check_points.empty() && request.control_list.empty()) {
    throw ExchangeError("check points are points of a control list");
  }
  require_positive(request.sigma_px, "the standard deviation");
  require_positive(request.control_sigma, "the standard deviation of control");
  require_positive(request.scale, "the scale");
  if (!(request.max_error_px >= 0.0)) throw ExchangeError("the largest error must be positive");
  check_project_name(settings.name);
  return settings;
}

void scale_model(Reconstruction& model, double scale) {
  for (SourceImage& image : model.images) image.pose.offset = scale * image.pose.offset;
  for (SourcePoint& point : model.points) point.xyz = scale * point.xyz;
}

// Names as words of a project. One that is taken already, since blanks were replaced, gets a
// number. Says how many changed.
template <class Record>
void make_words(std::vector<Record>& records, std::string Record::*name, const char* what,
                std::vector<std::string>& notes) {
  std::unordered_set<std::string> taken;
  taken.reserve(records.size());
  std::unordered_map<std::string, std::int64_t> numbers;  // the last one that a name got
  std::int64_t changed = 0;
  for (Record& record : records) {
    const std::string start = as_word(record.*name);
    std::string word = start;
    while (!taken.insert(word).second) {
      std::int64_t& number = numbers.try_emplace(start, 1).first->second;
      word = start + '_' + std::to_string(++number);
    }
    if (word == record.*name) continue;
    record.*name = std::move(word);
    ++changed;
  }
  if (changed > 0) {
    notes.push_back(std::to_string(changed) + " names of " + what + " changed: blanks became '_'");
  }
}

void make_words(Reconstruction& model) {
  make_words(model.cameras, &SourceCamera::id, "cameras", model.notes);
  make_words(model.images, &SourceImage::name, "images", model.notes);
  // Most sources number their points, which takes no table of names.
  const auto is_word = [](const SourcePoint& point) { return as_word(point.id) == point.id; };
  if (!std::all_of(model.points.begin(), model.points.end(), is_word)) {
    make_words(model.points, &SourcePoint::id, "points", model.notes);
  }
}

// Words of a list with commas between them.
std::vector<std::string> list_of_words(const std::string& text) {
  std::vector<std::string> words;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    words.emplace_back(trimmed(std::string_view(text).substr(begin, end - begin)));
    begin = end + 1;
  }
  return words;
}

// Makes check points of some points of a control list.
void mark_check_points(const Reconstruction& model, std::vector<ControlPoint>& control,
                       const std::string& names) {
  if (names.empty()) return;
  for (const std::string& name : list_of_words(names)) {
    const std::string word = as_word(name);
    const auto found = std::find_if(control.begin(), control.end(), [&](const auto& point) {
      const std::string& id = model.points[static_cast<std::size_t>(point.point)].id;
      return id == word || id == kControlPrefix + word;
    });
    if (found == control.end()) {
      throw ExchangeError("'" + name + "' is no point of the control list that takes part");
    }
    found->is_check = true;
  }
}

// Refuses what no reader can see from one record: nothing to orient, or rotations that are none.
void check_poses(const Reconstruction& model, const std::string& source) {
  constexpr double kRotationTolerance = 1e-4;
  if (model.images.empty()) throw ExchangeError(source + ": no image has an orientation");
  for (const SourceImage& image : model.images) {
    if (!is_rotation(image.pose.r, kRotationTolerance)) {
      throw ExchangeError(source + ": image " + image.name + ": its rotation cannot be computed");
    }
  }
}

// The folder of a project while it is being written: files go into a folder inside it, which takes
// its place when everything is right and disappears otherwise.
class Staging {
 public:
  explicit Staging(const ImportRequest& request)
      : directory_(request.directory), stage_(directory_ / ("." + request.name + ".part")) {
    created_ = !fs::exists(directory_);
    if (!created_ && !fs::is_directory(directory_)) {
      throw ExchangeError(request.directory + ": is no folder");
    }
    if (!created_) {
      refuse_other_project(request.name);
      refuse_other_files(request);
    }
    fs::create_directories(stage_);
  }
  ~Staging() {
    std::error_code ignored;
    fs::remove_all(stage_, ignored);
    if (created_ && !committed_) fs::remove(directory_, ignored);
  }
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  std::string path() const { return stage_.string(); }
  // The control file comes last, so that it never names files of another import.
  void commit(const std::string& control_file) {
    fs::remove(directory_ / control_file);
    for (const char* name : kProjectFiles) fs::rename(stage_ / name, directory_ / name);
    if (fs::exists(stage_ / kCheckPointFile)) {
      fs::rename(stage_ / kCheckPointFile, directory_ / kCheckPointFile);
    }
    fs::rename(stage_ / control_file, directory_ / control_file);
    committed_ = true;
  }

 private:
  void refuse_other_project(const std::string& name) const {
    for (const auto& entry : fs::directory_iterator(directory_)) {
      if (entry.path().extension() == ".ctl" && entry.path().stem() != name) {
        throw ExchangeError(entry.path().string() +
                            ": the folder holds another project; its files would be overwritten");
      }
    }
  }

  // Only files of an earlier import are replaced: those that its control file names.
  void refuse_other_files(const ImportRequest& request) const {
    std::error_code ignored;
    if (fs::equivalent(directory_, request.source, ignored)) {
      throw ExchangeError(request.directory +
                          ": the project cannot stand in the folder of its source");
    }
    const std::string control_file = (directory_ / (request.name + ".ctl")).string();
    FileText text;
    const bool is_there = text.load(control_file);
    for (const char* const name : kProjectFiles) {
      const std::string file = (directory_ / name).string();
      const bool is_named = text.view().find(name) != std::string_view::npos;
      if (is_there ? is_named : !fs::exists(file)) continue;
      throw ExchangeError(is_there ? control_file +
                                         ": this is not the project of an import; its "
                                         "files would be overwritten"
                                   : file + ": this is no file of a project " + request.name +
                                         ".ctl, and would be overwritten");
    }
    for (const std::string& source : {request.source, request.control_list}) {
      for (const char* const name : kProjectFiles) refuse_source(directory_ / name, source);
      refuse_source(directory_ / kCheckPointFile, source);
      refuse_source(control_file, source);
    }
  }
  static void refuse_source(const fs::path& file, const std::string& source) {
    if (!same_file(file.string(), source)) return;
    throw ExchangeError(source + ": the project would overwrite it");
  }

  fs::path directory_;
  fs::path stage_;
  bool created_ = false;
  bool committed_ = false;
};

void print_left_out(TextWriter& out, const LeftOut& left_out, double max_error) {
  const auto line = [&](std::int64_t count, std::string_view what) {
    if (count == 0) return;
    (out << "  left out     ").integer(count, 10) << "   " << what;
  };
  const auto rays = [&](std::int64_t count) {
    if (count > 0) out << " (" << count << " rays)";
    out << '\n';
  };
  line(left_out.duplicates, "further measurements of a point in the same image\n");
  if (left_out.points_at_centre > 0) {
    line(left_out.points_at_centre, "points at a projection centre");
    rays(left_out.rays_at_centre);
  }
  if (left_out.large_errors > 0) {
    line(left_out.large_errors, "rays with residuals of more than ");
    out << shortest()(max_error) << " px\n";
  }
  if (left_out.points_of_few_rays > 0) {
    line(left_out.points_of_few_rays, "points with fewer than two rays");
    rays(left_out.rays_of_few);
  }
}

void print_summary(const Reconstruction& model, const Verification& found, std::int64_t source_rays,
                   const ImportRequest& request, const std::string& control_file) {
  constexpr NumberFormat kPixels = general(0, 6);
  constexpr NumberFormat kDifference = scientific(1);
  constexpr NumberFormat kCost = general(0, 12);
  TextWriter& out = standard_output();
  std::string models;
  for (const SourceCamera& camera : model.cameras) {
    if (models.find(camera.model) == std::string::npos) {
      models += (models.empty() ? "" : ", ") + camera.model;
    }
  }
  out << "Import from " << model.format << ": " << request.source << "\n\n";
  const auto line = [&](std::string_view label, std::int64_t count) -> TextWriter& {
    out << "  " << left_aligned(label, 13);
    return out.integer(count, 10);
  };
  line("cameras", static_cast<std::int64_t>(model.cameras.size())) << "   " << models << '\n';
  line("images", static_cast<std::int64_t>(model.images.size())) << '\n';
  line("points", static_cast<std::int64_t>(model.points.size())) << '\n';
  line("rays", model.count_rays()) << "   of " << source_rays << " in the source\n";
  print_left_out(out, model.left_out, request.max_error_px);
  if (found.behind > 0) line("behind", found.behind) << "   rays to points behind the camera\n";
  if (found.near > 0) {
    line("near", found.near) << "   rays to points nearer than 0.001 of the median depth\n";
  }
  for (const std::string& note : model.notes) out << "  note: " << note << '\n';
  out << "\n  residuals as given: rms of a coordinate " << kPixels(found.rms()) << " px, largest "
      << kPixels(found.largest_residual) << " px, half their sum of squares " << kCost(found.cost)
      << " px^2\n  largest difference of both re-projections: "
      << kDifference(found.largest_difference) << " px\n  project: " << control_file << '\n';
}

}  // namespace

void set_free(ProjectSettings& settings, const std::string& text) {
  constexpr auto kNames = std::to_array<std::pair<std::string_view, Lens>>({{"f", Lens::f},
                                                                            {"pp", Lens::pp},
                                                                            {"cx", Lens::cx},
                                                                            {"cy", Lens::cy},
                                                                            {"k1", Lens::k1},
                                                                            {"k2", Lens::k2},
                                                                            {"k3", Lens::k3},
                                                                            {"p1", Lens::p1},
                                                                            {"p2", Lens::p2},
                                                                            {"b1", Lens::b1},
                                                                            {"b2", Lens::b2}});
  settings.free = Lens::none;
  settings.free_own = text == "model";
  if (text == "none" || settings.free_own) return;
  for (const std::string& part : list_of_words(text)) {
    const auto found = std::find_if(kNames.begin(), kNames.end(),
                                    [&](const auto& name) { return name.first == part; });
    if (found == kNames.end()) {
      throw ExchangeError("cannot free '" + part +
                          "'; there are none, model, or a list of f, pp, cx, cy, k1, k2, k3, p1, "
                          "p2, b1, b2");
    }
    settings.free = settings.free | found->second;
  }
}

void import_project(const ImportRequest& request) {
  const ProjectSettings settings = settings_of(request);
  Reconstruction model = format_named(kFormats, request.format).read(request.source);
  check_poses(model, request.source);
  make_words(model);
  const std::int64_t source_rays = model.count_rays();
  const bool has_points = source_rays > 0 || !model.points.empty();
  if (request.scale != 1.0) scale_model(model, request.scale);
  leave_out_unusable(model, request.max_error_px);
  if (has_points && model.points.empty()) {
    throw ExchangeError(request.source + ": no point has two rays");
  }
  if (!has_points) model.notes.push_back("there are no points: cameras and orientations only");

  std::vector<ControlPoint> control;
  std::optional<Reconstruction> original;
  if (!request.control_list.empty()) {
    original = model;
    control =
        add_control(model, Source(request.control_list, Source::Kind::text), request.control_sigma);
    mark_check_points(model, control, request.check_points);
  }

  const std::string control_file = settings.name + ".ctl";
  Staging staging(request);
  write_project(model, control, settings, staging.path());
  const Verification found =
      verify_project((fs::path(staging.path()) / control_file).string(), model, settings.pixel_size,
                     original ? &*original : nullptr);
  if (!std::isfinite(found.cost)) {
    throw ExchangeError(request.source + ": the residuals are beyond all numbers");
  }
  staging.commit(control_file);
  print_summary(model, found, source_rays, request,
                (fs::path(request.directory) / control_file).string());
}

}  // namespace vorn::exchange
