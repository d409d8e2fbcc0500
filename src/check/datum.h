#pragma once

#include "check/remaining_network.h"
#include "text/findings.h"

namespace vorn {

// Reports the shifts, rotations and the scale that nothing fixes: of the network, or of each group
// of images that no common point ties to the others.
void check_datum(const RemainingNetwork& network, FindingListener& findings);

}  // namespace vorn
