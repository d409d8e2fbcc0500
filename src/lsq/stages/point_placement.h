#pragma once

#include <vector>

#include "lsq/stages/held_point.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// Gives new approximate coordinates to free object points that no step could make good: those
// behind an image or in the plane of a projection centre, and those whose rays intersect elsewhere
// much better. They come to where their rays, from the current orientations, are closest. Points
// that were in a bad place are noted.
void place_points(BundleProject& project, std::vector<HeldPoint>& noted);

void print_held_points(const std::vector<HeldPoint>& points, TextWriter& report);

}  // namespace vorn
