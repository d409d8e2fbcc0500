#pragma once

#include <string>

#include "text/findings.h"

namespace vorn {

class BundleProject;

// Looks through a project without adjusting it: reads its files strictly, compares names with
// names, tries what would make the approximations fit the measurements, and asks what the network
// of rays can determine. Findings of one kind are looked for only where what they rest on is sound.
//
// Changes the current directory to that of the control file. What readers print goes to the
// standard output as in a run. False when the control file cannot be read.
[[nodiscard]] bool check_project(const std::string& control_file, FindingList& findings);

// The parts that follow reading, in this order. All take a project that was read completely.

// Names against names: what leads nowhere, what nothing uses. Binds images to orientations,
// measurements to object points, sets to cameras and corrections to orientations, as far as these
// exist.
void check_names(BundleProject& project, FindingListener& findings);
// Units, axes and rotations by the residuals of the approximations, and single ones that stand out.
void check_plausibility(BundleProject& project, FindingList& findings);
// Rays, and what they leave undetermined where the project has no errors; then what the normal
// equations would take.
void check_network(BundleProject& project, FindingList& findings);

// Adds a finding about an object that was read; `key` is what its place is remembered by.
void add_finding(FindingListener& findings, FindingCode code, RecordPlaces::Key key,
                 FindingObject object, std::string message, std::string help = {});

}  // namespace vorn
