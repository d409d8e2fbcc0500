#pragma once

#include <memory>
#include <vector>

#include "quality/tables.h"

namespace vorn {
class BundleProject;
}

namespace vorn::session {

// All tables of a session's results: those of documents, and "statistics", "iterations",
// "orientations" and "groups". Project and results outlive them.
[[nodiscard]] std::vector<std::unique_ptr<ResultTable>> tables_of_session(
    const BundleProject& project, const QualityResults& results);

}  // namespace vorn::session
