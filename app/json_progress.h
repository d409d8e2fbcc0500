#pragma once

#include <memory>

#include "app/progress_view.h"

namespace vorn::app {

// Tells of a run in JSON, one object a line, on the error stream. What others print there meanwhile
// becomes objects, too, until the view is destroyed. Null where this build
// writes no JSON.
[[nodiscard]] std::unique_ptr<ProgressView> make_json_progress();

}  // namespace vorn::app
