// The control file: pairs of a keyword and the name of a data file.

#include "driver/control_file.h"

#include <algorithm>
#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/paths.h"
#include "geometry/eo_file.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"
#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {
namespace {

// Reads one data file into the project; each has a message of its own for a failure.
struct DataFileReader {
  Keyword keyword;
  int (*read)(TokenReader&, BundleProject&);
  std::string_view failure;
};

constexpr DataFileReader kReaders[] = {
    {Keyword::params,
     [](TokenReader& in, BundleProject& project) { return project.options.read_options(in); },
     "ERROR: Reading params./options file failed.\n"},
    {Keyword::ls_params, [](TokenReader& in, BundleProject&) { return ls_params().read(in); },
     "ERROR: Reading LS-parameters file failed.\n"},
    {Keyword::camera,
     [](TokenReader& in, BundleProject& project) { return read_camera_file(in, project.cameras); },
     "ERROR: Reading camera file failed.\n"},
    {Keyword::image,
     [](TokenReader& in, BundleProject& project) {
       return read_image_file(in, project.images, project.cameras);
     },
     "ERROR: Reading image file failed.\n"},
    {Keyword::image_geometry,
     [](TokenReader& in, BundleProject& project) {
       return read_eo_file(in, project.image_geometries);
     },
     "ERROR: Reading EO file failed.\n"},
    {Keyword::ext_ori,
     [](TokenReader& in, BundleProject& project) {
       return read_eo_file(in, project.image_geometries);
     },
     "ERROR: Reading EO file failed.\n"},
    {Keyword::image_crds,
     [](TokenReader& in, BundleProject& project) {
       return read_image_crds_file(in, project.images);
     },
     "ERROR: Reading image coords. file failed.\n"},
    {Keyword::obj_crds,
     [](TokenReader& in, BundleProject& project) {
       return read_obj_crds(in, project.object_points);
     },
     "ERROR: Reading object coords. file failed.\n"},
    {Keyword::ctrl_supp,
     [](TokenReader& in, BundleProject& project) {
       return read_ctrl_supp(in, project.object_points);
     },
     "ERROR: Reading CS file failed.\n"},
    {Keyword::ap_set,
     [](TokenReader& in, BundleProject& project) { return read_ap_set_file(in, project.ap_sets); },
     "ERROR: Reading AP set file failed.\n"},
    {Keyword::pos_cor,
     [](TokenReader& in, BundleProject& project) {
       return read_pos_correction_file(in, project.pos_corrections);
     },
     "ERROR: Reading position correction file failed.\n"},
    {Keyword::att_cor,
     [](TokenReader& in, BundleProject& project) {
       return read_att_correction_file(in, project.att_corrections);
     },
     "ERROR: Reading attitude correction file failed.\n"},
};

const DataFileReader* find_reader(Keyword keyword) {
  for (const DataFileReader& reader : kReaders) {
    if (reader.keyword == keyword) return &reader;
  }
  return nullptr;
}

// Only for findings: what exists near a file that cannot be opened.
void report_missing_file(TokenReader& in, std::string_view name) {
  if (!in.listens() || name.empty()) return;
  const PathParts parts = split_path(name);
  const std::string directory = parts.drive + parts.directory;
  const std::vector<std::string> names =
      names_in_directory(directory.empty() ? std::string(".") : directory);
  const std::vector<std::string_view> known(names.begin(), names.end());
  const std::string file(name.substr(directory.size()));
  in.report(FindingCode::file_missing, name, "cannot open " + quoted(name),
            suggestion(file, known));
}

std::vector<std::string_view> data_file_keywords() {
  std::vector<std::string_view> known;
  for (const std::string_view name : all_keywords()) {
    if (find_reader(lookup_keyword(name)) != nullptr) known.push_back(name);
  }
  return known;
}

// Only for findings: the file behind a word of the control file could not be read, so that names
// that lead nowhere in its lists follow from that. A word that is no keyword may mean any of them.
void lists_lack_something(TokenReader& in, std::string_view word) {
  if (!in.listens()) return;
  for (const std::string_view keyword : data_file_keywords()) {
    if (word == keyword || !is_keyword(word)) in.listener()->incomplete.emplace(keyword);
  }
}

// A keyword that names records of other files: its file is opened and not read.
void report_unused_file(TokenReader& in, std::string_view keyword) {
  if (!in.listens()) return;
  std::string help = suggestion(keyword, data_file_keywords());
  in.report(FindingCode::keyword_unknown, keyword,
            "the file of the keyword " + quoted(keyword) + " is not used", std::move(help));
}

// What nobody noticed in the part of a file that was read, and behind it.
void check_text(TokenReader& in, bool complete, const BeginsRecord& begins_record = {}) {
  report_invisible(in);
  if (complete) report_rest(in, begins_record);
}

// A file without a word in which a list was expected.
bool report_empty_file(TokenReader& in, Keyword keyword) {
  constexpr std::array kLists = {Keyword::camera, Keyword::ap_set, Keyword::pos_cor,
                                 Keyword::att_cor};
  if (!in.listens() || !in.only_blanks_left() ||
      std::find(kLists.begin(), kLists.end(), keyword) == kLists.end()) {
    return false;
  }
  in.report(FindingCode::value_missing, in.rest().substr(0, 0), "the file is empty");
  return in.goes_on();
}

// Records of images and their measurements, told by names that the project knows.
bool begins_image_record(const BundleProject& project, std::span<const std::string_view> words) {
  if (words.size() == 4 && lookup_keyword(words[0]) == Keyword::image_frame) {
    return project.cameras.find(words[3]) != nullptr;
  }
  return words.size() == 2 && project.images.find(words[0]) != nullptr;
}

void report_empty_project(TokenReader& in, const BundleProject& project) {
  if (!in.listens()) return;
  std::int64_t measurements = 0;
  for (const BundleImage& image : project.images) measurements += image.count_points();
  const auto report = [&in](std::string_view what) {
    in.listener()->add({FindingCode::empty_project,
                        printable(in.file()),
                        0,
                        0,
                        {},
                        "the project has no " + std::string(what),
                        {}});
  };
  if (project.images.count() == 0) {
    report("image");
  } else if (measurements == 0) {
    report("measured image point");
  } else if (project.object_points.count() == 0) {
    report("object point");
  }
}

// Tells a project how much of its data files is read.
class ReadingProgress {
 public:
  ReadingProgress(const BundleProject& project, std::string_view control_file) : project_(project) {
    if (!project_.on_reading) return;
    TokenReader names(control_file);
    std::string keyword;
    std::string name;
    while (names.read_word(keyword) && keyword != kEndWord && names.read_word(name)) {
      total_ += static_cast<double>(file_size(name));
    }
    tell_ = [this](std::size_t bytes) { static_cast<void>(tell(bytes)); };
  }
  ReadingProgress(const ReadingProgress&) = delete;
  ReadingProgress& operator=(const ReadingProgress&) = delete;

  void follow(TokenReader& data) const {
    constexpr std::size_t kMostTellings = 100;
    if (!tell_) return;
    data.tell_progress(tell_, static_cast<std::size_t>(total_) / kMostTellings + 1);
  }
  // A file is read. False when no other is to be.
  [[nodiscard]] bool finish(std::string_view file) {
    if (!tell_) return true;
    done_ += static_cast<double>(file.size());
    return tell(0);
  }

 private:
  [[nodiscard]] bool tell(std::size_t bytes) const {
    return project_.on_reading(
        total_ > 0.0 ? std::min(1.0, (done_ + static_cast<double>(bytes)) / total_) : 0.0);
  }

  const BundleProject& project_;
  double total_ = 0.0;  // bytes
  double done_ = 0.0;
  std::function<void(std::size_t)> tell_;
};

}  // namespace

bool is_data_file_keyword(Keyword keyword) { return find_reader(keyword) != nullptr; }

int BundleProject::read_control_file(TokenReader& in) {
  // A keyword without a reader leaves the status as the data file before it left it.
  int status = -1;
  bool no_images = false;
  FileText file;
  ReadingProgress progress(*this, in.rest());
  const auto read_file = [&](std::string_view word) {
    const Keyword keyword = lookup_keyword(word);
    if (keyword == Keyword::none) {
      report_unknown_word(in, word, "keyword", data_file_keywords());
      return reading_failed("ERROR: Unknown keyword: '", word, "'\n");
    }
    std::string_view name;
    // A missing name is one that cannot be opened.
    if (!in.need_word(name, "the name of a file")) name = {};
    std::string complaint;
    if (!file.load_data(std::string(name), complaint)) {
      if (is_keyword(name)) {
        in.report(FindingCode::value_missing, name,
                  "the name of a file is missing before " + quoted(name));
        in.fail();
      }
      if (complaint.empty()) {
        report_missing_file(in, name);
      } else {
        in.report(FindingCode::file_missing, name, quoted(name) + ": " + complaint);
      }
      return reading_failed("ERROR: Cannot open input file: ", name, '\n');
    }
    if (const DataFileReader* const reader = find_reader(keyword)) {
      const bool unreadable = report_utf16(file.view(), name, in.listener());
      TokenReader data(file.view(), name, unreadable ? nullptr : in.listener());
      progress.follow(data);
      const bool empty = report_empty_file(data, keyword);
      status = reader->read(data, *this);
      if (data.passed_over() || empty) status = -1;
      // Their measurements lead nowhere then: the project is empty.
      no_images = no_images || (keyword == Keyword::image && status == 1 && images.count() == 0);
      if (no_images) lists_lack_something(in, word);
      check_text(data, status == 1, [this](std::span<const std::string_view> words) {
        return begins_image_record(*this, words);
      });
      if (status != 1) standard_output() << reader->failure;
    } else {
      report_unused_file(in, word);
    }
    if (!progress.finish(file.view())) return -1;
    return status == 1 ? 1 : reading_failed("ERROR: Reading input file failed: ", name, '\n');
  };
  const int result = read_records(in, EndWords::keyword, [&](std::string_view word) {
    const int read = read_file(word);
    if (read != 1) lists_lack_something(in, word);
    return read;
  });
  check_text(in, result == 1);
  if (result == 1 || no_images) report_empty_project(in, *this);
  return result;
}

}  // namespace vorn
