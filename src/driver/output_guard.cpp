#include "driver/output_guard.h"

#include <algorithm>
#include <string_view>

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

// Everything that a run may write to.
std::vector<std::string> written_files(const std::string& control_file, const ControlFile& content,
                                       bool with_cameras) {
  std::vector<std::string> dumps;
  for (const NamedFile& file : content.files) {
    // Later options replace earlier ones.
    if (file.keyword == Keyword::params) dumps = normal_equation_files(file.path);
  }
  std::vector<std::string> files =
      output_names(split_path(absolute_path(control_file))).opened(with_cameras);
  for (const std::string& name : dumps) files.push_back(from_directory_of(control_file, name));
  return files;
}

}  // namespace

bool is_own_output(const std::string& control_file, const OutputNames& names, bool with_cameras) {
  const std::vector<std::string> files = names.opened(with_cameras);
  return std::any_of(files.begin(), files.end(), [&](const std::string& name) {
    return name == control_file || same_file(name, control_file);
  });
}

std::vector<InputClash> find_input_clashes(const std::string& control_file, bool with_cameras) {
  const FileKind kind = file_kind(control_file);
  if (kind == FileKind::missing) return {{ClashKind::control_file_missing, control_file}};
  if (kind == FileKind::directory) return {{ClashKind::control_file_is_directory, control_file}};
  const ControlFile content = read_names(control_file);
  std::vector<InputClash> clashes;
  for (const std::string& output : written_files(control_file, content, with_cameras)) {
    if (same_file(output, control_file)) {
      return {{ClashKind::control_file_is_output, control_file}};
    }
    for (const NamedFile& file : content.files) {
      if (same_file(output, file.path)) {
        clashes.push_back({ClashKind::data_file_is_output, file.path});
      }
    }
  }
  if (!content.plausible) return {{ClashKind::not_a_control_file, control_file}};
  return clashes;
}

}  // namespace vorn
