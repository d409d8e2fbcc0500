#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "quality/diagnosis.h"
#include "quality/diagnosis_network.h"
#include "quality/diagnosis_system.h"
#include "quality/diagnosis_weakness.h"

namespace vorn {

class BundleProject;

// The findings of a diagnosis, one function per question. Each judges numbers and says in two
// sentences what is wrong and what helps.

// What was removed before the adjustment, and unknowns that nothing is left to determine.
void find_unobserved(const BundleProject& project, const UnknownWeights& weights,
                     Diagnosis& diagnosis);
// Points whose rays coincide or meet under less than a degree, unless they are control. Where the
// largest angles of intersection are known (`angles`, by points; not a number where the rays have
// no directions) the rays of the other points are not looked at. Returns the points that nothing
// determines.
std::vector<const ObjectPoint*> find_weak_intersections(const BundleProject& project,
                                                        const UnknownWeights& weights,
                                                        const NormalMatrix& normal,
                                                        const std::vector<double>& angles,
                                                        Diagnosis& diagnosis);
// Parts of the network with a free datum, and a network that falls apart.
void find_datum_defects(const Network& network, Diagnosis& diagnosis);
// Directions that are no similarity motions and that nothing determines, their eigenvalues being
// below a limit: those that additional parameters or corrections take part in, each for itself, and
// those of points and orientations alone, which have one cause as a rule.
void find_inseparable(const UnknownNames& names, const std::vector<WeakDirection>& directions,
                      double below, Diagnosis& diagnosis);
void find_loose_images(const UnknownNames& names, const std::vector<WeakDirection>& directions,
                       double below, Diagnosis& diagnosis);
// Additional parameters that are determined, but hardly apart from another one or an orientation.
// What an error names already is left out.
void find_correlated(const UnknownNames& names, const std::vector<StrongCorrelation>& correlations,
                     Diagnosis& diagnosis);

}  // namespace vorn
