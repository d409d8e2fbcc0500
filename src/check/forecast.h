#pragma once

#include "text/findings.h"

namespace vorn {

class BundleProject;
class RemainingNetwork;

// Adds a note on the size of the adjustment: its unknowns, and about how much memory and time an
// iteration takes.
void add_forecast(const BundleProject& project, const RemainingNetwork& network,
                  FindingListener& findings);

}  // namespace vorn
