#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "driver/paths.h"

namespace vorn {

// Why a run of a control file would come to nothing or destroy what it should not.
enum class ObstacleKind {
  control_file_missing,
  control_file_is_directory,
  not_a_control_file,      // it names no data file by a keyword of the control file
  control_file_is_output,  // it has the name of one of its own outputs
  data_file_is_output,     // a data file has the name of an output
  output_is_link,          // an output is a link to somewhere else
  output_is_no_file,       // an output is a directory, a device or a pipe
  outputs_clash,           // two outputs have one name
  dump_outside,            // the options name a file outside the project's directory
  dump_replaces_file,      // the options name a file that is there and holds something else
};
// A sentence about it.
[[nodiscard]] std::string_view text_of(ObstacleKind kind);

struct Obstacle {
  ObstacleKind kind;
  std::string file;  // the control file as given, or another file as seen from there
};

// What a run writes, and what its user allows.
struct GuardRequest {
  std::string control_file;
  bool with_cameras = false;
  // Files that the options name for the normal equations may stand anywhere and replace anything
  // but the project's own files.
  bool allow_outside = false;
  // Files that the run reads or writes beside those that its control file tells of.
  std::vector<std::string> more_inputs = {};
  std::vector<std::string> more_outputs = {};
  // False: nothing is written, and only the control file itself may be an obstacle.
  bool writes_files = true;
};

// Reads the control file, the options that it names and the beginning of the files that it would
// replace, touches nothing, and prints nothing. Empty when the project may run. Files are compared
// by their identity: links and other spellings are seen through.
[[nodiscard]] std::vector<Obstacle> find_obstacles(const GuardRequest& request);
// The same for a program that writes `more_outputs` and runs nothing: those that would replace a
// file of the project, its results included, or each other.
[[nodiscard]] std::vector<Obstacle> find_replaced_files(const GuardRequest& request);

// Whether the control file, a full path, is itself one of the files that its run opens: the one
// clash that every run refuses, the library's too.
[[nodiscard]] bool is_own_output(const std::string& control_file, const OutputNames& names,
                                 bool with_cameras);

}  // namespace vorn
