#pragma once

#include <string>
#include <vector>

#include "driver/paths.h"

namespace vorn {

// Why a run of a control file would come to nothing or destroy what it reads.
enum class ClashKind {
  control_file_missing,
  control_file_is_directory,
  not_a_control_file,      // it names no data file by a keyword of the control file
  control_file_is_output,  // it has the name of one of its own outputs
  data_file_is_output,     // a data file has the name of an output
};
struct InputClash {
  ClashKind kind;
  std::string file;  // the control file as given, or a data file as seen from there
};

// Reads the control file and the options that it names, touches nothing, and prints nothing. Empty
// when the project may run. Files are compared by their identity: links and other spellings are
// seen through. Files that the options name for the normal equations are outputs, too.
[[nodiscard]] std::vector<InputClash> find_input_clashes(const std::string& control_file,
                                                         bool with_cameras);

// Whether the control file, a full path, is itself one of the files that its run opens: the one
// clash that every run refuses, the library's too.
[[nodiscard]] bool is_own_output(const std::string& control_file, const OutputNames& names,
                                 bool with_cameras);

}  // namespace vorn
