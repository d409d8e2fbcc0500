#include "check/check.h"

#include <string_view>
#include <utility>

#include "driver/bundle_project.h"
#include "driver/output_guard.h"
#include "driver/paths.h"
#include "text/file_system.h"
#include "text/text_checks.h"

namespace vorn {
namespace {

void check_outputs(const std::string& control_file, const std::string& directory,
                   FindingListener& findings) {
  for (const Obstacle& obstacle : find_obstacles({control_file, true})) {
    std::string message;
    std::string file = obstacle.file;
    if (file.starts_with(directory)) file.erase(0, directory.size());
    if (obstacle.kind == ObstacleKind::control_file_is_output) {
      message = "the control file has the name of one of the files that the run writes";
    } else if (obstacle.kind == ObstacleKind::data_file_is_output) {
      message = "this file is read, and the run would overwrite it";
    } else if (obstacle.kind == ObstacleKind::output_is_link) {
      message = "the run would write this file, and it is a link to another one";
    } else if (obstacle.kind == ObstacleKind::outputs_clash) {
      message = "the run would write two files of this name";
    } else {
      continue;
    }
    findings.add({FindingCode::output_clash,
                  printable(file),
                  0,
                  0,
                  {},
                  message,
                  "give one of the two files another name"});
  }
}

}  // namespace

void add_finding(FindingListener& findings, FindingCode code, RecordPlaces::Key key,
                 FindingObject object, std::string message, std::string help) {
  Place place = findings.places.find(key.first, key.second);
  object.id = printable(object.id);
  object.image = printable(object.image);
  findings.add({code, std::move(place.file), place.line, place.column, std::move(object),
                std::move(message), std::move(help)});
}

bool check_project(const std::string& control_file, FindingList& findings) {
  const FileKind kind = file_kind(control_file);
  FileText text;
  if (kind == FileKind::missing || kind == FileKind::directory || !text.load(control_file)) {
    return false;
  }
  const std::string full_path = absolute_path(control_file);
  const PathParts parts = split_path(full_path);
  const std::string directory = parts.drive + parts.directory;
  const std::string name = full_path.substr(directory.size());
  // Data files are named as seen from there; a directory that cannot be entered shows as missing
  // files.
  static_cast<void>(change_directory(directory));

  BundleProject project;
  findings.goes_on = true;
  findings.remembers_image_points = true;
  project.findings = &findings;
  if (report_utf16(text.view(), name, &findings)) return true;
  TokenReader in(text.view(), name, &findings);
  const bool complete = project.read_control_file(in) == 1;
  static_cast<void>(change_directory(directory));
  check_names(project, findings);
  if (complete) {
    check_plausibility(project, findings);
    check_network(project, findings);
  }
  check_outputs(full_path, directory, findings);
  return true;
}

}  // namespace vorn
