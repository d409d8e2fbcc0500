#pragma once

#include "base/owned_list.h"
#include "geometry/image_geometry.h"
#include "text/token_reader.h"

namespace vorn {

// Reads a file of image geometries into the list. Its first word chooses the layout: "indiv-type",
// where each record has its own type keyword, or "common-type", where a header states one type of
// exterior orientation, the angle unit and the standard deviations of all records. A geometry whose
// station is listed already takes the place of the older one, with a message on standard output. 1,
// or -1 with messages on standard output; what was read before a failure stays.
[[nodiscard]] int read_eo_file(TokenReader& in, OwnedList<ImageGeometry>& geometries);

}  // namespace vorn
