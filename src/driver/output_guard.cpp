#include "driver/output_guard.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "driver/control_file.h"
#include "driver/options.h"
#include "text/file_system.h"
#include "text/token_reader.h"

namespace vorn {
namespace {

// A data file that a control file names.
struct NamedFile {
  Keyword keyword;
  std::string path;
};

// What a control file says, as far as it can be understood without reading the data files.
struct ControlFile {
  bool plausible = false;  // empty, or its pairs are those of a control file
  std::vector<NamedFile> files;
};

// A name of a project's file as seen from the directory of its control file.
std::string from_directory_of(const std::string& control_file, std::string_view name) {
  const PathParts parts = split_path(absolute_path(control_file));
  const PathParts named = split_path(name);
  const bool absolute = !named.drive.empty() || named.directory.find_first_of("/\\") == 0;
  return (absolute ? std::string() : parts.drive + parts.directory) + std::string(name);
}

ControlFile read_names(const std::string& control_file) {
  ControlFile content;
  FileText text;
  if (!text.load(control_file)) return content;
  TokenReader in(text.view());
  content.plausible = in.only_blanks_left();
  std::string_view word;
  std::string_view name;
  for (bool first = true; in.read_word(word); first = false) {
    const Keyword keyword = lookup_keyword(word);
    content.plausible |= first && keyword == Keyword::stop_dep;
    if (keyword == Keyword::stop_dep || !in.read_word(name)) break;
    content.files.push_back({keyword, from_directory_of(control_file, name)});
    // A record of a data file may hold such a word, too.
    content.plausible |= is_data_file_keyword(keyword) &&
                         (first || file_kind(content.files.back().path) != FileKind::missing);
  }
  return content;
}

// The files of the normal equations that an options file names.
std::vector<std::string> normal_equation_files(const std::string& options_file) {
  Options options;
  FileText text;
  if (text.load(options_file)) {
    TokenReader in(text.view());
    std::string_view failure;
    // What was read before a failure counts.
    static_cast<void>(options.read_fields(in, failure));
  }
  std::vector<std::string> names;
  for (const std::string& name :
       {options.structure_file, options.matrix_file, options.rhs_file, options.solution_file}) {
    if (name != "none") names.push_back(name);
  }
  return names;
}

// The files that the last options of a control file name: later options replace earlier ones.
std::vector<std::string> find_dumps(const std::string& control_file, const ControlFile& content) {
  std::vector<std::string> dumps;
  for (const NamedFile& file : content.files) {
    if (file.keyword == Keyword::params) dumps = normal_equation_files(file.path);
  }
  for (std::string& name : dumps) name = from_directory_of(control_file, name);
  return dumps;
}

bool is_same(const std::string& a, const std::string& b) {
  return same_file(a, b) || canonical_path(a) == canonical_path(b);
}

// Whether a file stands in a directory, which ends with a separator, or below.
bool is_within(const std::string& file, const std::string& directory) {
  std::string start = canonical_path(directory + "x");
  start.pop_back();
  return canonical_path(file).starts_with(start);
}

// A number as the files of the normal equations show it: "-1.234567890123e+00", "nan".
bool is_dumped_number(std::string_view word) {
  if (word.find_first_not_of("-naif") == std::string_view::npos) return true;
  constexpr std::size_t kDecimals = 12;
  const std::size_t dot = word.find('.');
  const std::size_t exponent = word.find('e');
  return dot != std::string_view::npos && exponent == dot + kDecimals + 1 &&
         word.find_first_not_of("+-.e0123456789") == std::string_view::npos;
}

// Whether a file is empty or may be one of an earlier run's normal equations: a bitmap, or one or
// two counts and then numbers of their form.
bool looks_like_dump(const std::string& path) {
  FileText text;
  if (!text.load(path)) return false;
  TokenReader in(text.view());
  std::string_view word;
  if (!in.read_word(word) || word == "P1") return true;
  std::int32_t num_counts = 1;
  for (; in.read_word(word); ++num_counts) {
    if (is_dumped_number(word)) return true;
    if (num_counts == 2 || word.find_first_not_of("0123456789") != std::string_view::npos) {
      return false;
    }
  }
  return text.view().front() == '0';  // an empty system
}

class Guard {
 public:
  explicit Guard(const GuardRequest& request)
      : request_(request),
        content_(read_names(request.control_file)),
        dumps_(find_dumps(request.control_file, content_)) {
    const PathParts parts = split_path(absolute_path(request.control_file));
    directory_ = parts.drive + parts.directory;
    const OutputNames names = output_names(parts);
    results_ = names.opened(request.with_cameras);
    results_.push_back(names.failed);
    for (const std::string& input : request.more_inputs) {
      content_.files.push_back({Keyword::none, input});
    }
  }

  std::vector<Obstacle> find() {
    if (request_.writes_files) check_outputs();
    const bool other_reason =
        !obstacles_.empty() && obstacles_.front().kind == ObstacleKind::control_file_is_output;
    if (!content_.plausible && !other_reason) {
      return {{ObstacleKind::not_a_control_file, request_.control_file}};
    }
    return std::move(obstacles_);
  }

  std::vector<Obstacle> find_replaced() {
    results_.insert(results_.end(), dumps_.begin(), dumps_.end());
    check_more_outputs();
    return std::move(obstacles_);
  }

 private:
  void add(ObstacleKind kind, const std::string& file) { obstacles_.push_back({kind, file}); }

  void check_outputs() {
    for (const std::string& output : results_) check_output(output);
    for (const std::string& dump : dumps_) check_output(dump);
    check_more_outputs();
    for (std::size_t i = 0; i < dumps_.size(); ++i) check_dump(i);
  }

  void check_output(const std::string& output) {
    if (is_same(output, request_.control_file)) {
      obstacles_.insert(obstacles_.begin(),
                        {ObstacleKind::control_file_is_output, request_.control_file});
    }
    bool is_input = false;
    for (const NamedFile& file : content_.files) {
      if (!same_file(output, file.path)) continue;
      add(ObstacleKind::data_file_is_output, file.path);
      is_input = true;
    }
    const FileKind kind = file_kind(output);
    if (is_input) return;
    if (is_link(output)) {
      add(ObstacleKind::output_is_link, output);
    } else if (kind != FileKind::missing && kind != FileKind::regular) {
      add(ObstacleKind::output_is_no_file, output);
    }
  }

  void check_more_outputs() {
    for (const std::string& output : request_.more_outputs) {
      check_output(output);
      check_clash(output, results_);
      results_.push_back(output);
    }
  }

  bool check_clash(const std::string& output, const std::vector<std::string>& others) {
    const auto is_this = [&output](const std::string& other) { return is_same(output, other); };
    if (std::none_of(others.begin(), others.end(), is_this)) return false;
    add(ObstacleKind::outputs_clash, output);
    return true;
  }

  void check_dump(std::size_t i) {
    const std::string& dump = dumps_[i];
    const auto before = dumps_.begin() + static_cast<std::ptrdiff_t>(i);
    if (!check_clash(dump, results_)) check_clash(dump, {dumps_.begin(), before});
    if (request_.allow_outside) return;
    if (!is_within(dump, directory_)) {
      add(ObstacleKind::dump_outside, dump);
    } else if (file_kind(dump) == FileKind::regular && !looks_like_dump(dump)) {
      add(ObstacleKind::dump_replaces_file, dump);
    }
  }

  const GuardRequest& request_;
  ControlFile content_;
  std::vector<std::string> dumps_;    // files of the normal equations
  std::vector<std::string> results_;  // all other outputs
  std::string directory_;
  std::vector<Obstacle> obstacles_;
};

}  // namespace

bool is_own_output(const std::string& control_file, const OutputNames& names, bool with_cameras) {
  const std::vector<std::string> files = names.opened(with_cameras);
  return std::any_of(files.begin(), files.end(), [&](const std::string& name) {
    return name == control_file || same_file(name, control_file);
  });
}

std::string_view text_of(ObstacleKind kind) {
  constexpr std::string_view kSays[] = {
      "no such control file",
      "a directory is no control file",
      "this is no control file: it names no data file by a keyword",
      "the control file has the name of one of its own outputs",
      "a data file has the name of one of the outputs and would be overwritten",
      "an output is a link to another file; remove the link first",
      "an output would replace something that is no file",
      "two outputs have this name",
      "the options name an output outside the project's directory; --allow-outside permits it",
      "the options name an output, but this file holds something else; --allow-outside replaces it",
  };
  static_assert(std::size(kSays) == static_cast<std::size_t>(ObstacleKind::dump_replaces_file) + 1);
  return kSays[static_cast<std::size_t>(kind)];
}

std::vector<Obstacle> find_obstacles(const GuardRequest& request) {
  const FileKind kind = file_kind(request.control_file);
  if (kind == FileKind::missing) {
    return {{ObstacleKind::control_file_missing, request.control_file}};
  }
  if (kind == FileKind::directory) {
    return {{ObstacleKind::control_file_is_directory, request.control_file}};
  }
  return Guard(request).find();
}

std::vector<Obstacle> find_replaced_files(const GuardRequest& request) {
  return Guard(request).find_replaced();
}

}  // namespace vorn
