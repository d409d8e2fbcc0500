#pragma once

#include "text/keywords.h"

namespace vorn {

// Whether a control file names a data file that is read by this keyword. Other keywords belong to
// the records of data files.
[[nodiscard]] bool is_data_file_keyword(Keyword keyword);

}  // namespace vorn
