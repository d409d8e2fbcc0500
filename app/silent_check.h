#pragma once

#include <string>

#include "text/findings.h"

namespace vorn::app {

// Checks a project without a word and without a trace: the settings of the process and its current
// directory are afterwards as they were. False when the control file cannot be read.
[[nodiscard]] bool check_silently(const std::string& control_file, FindingList& findings);

}  // namespace vorn::app
