#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace vorn::test {

// What a simulated project consists of. Images look from a ring of places at a field of points;
// image i has camera i and orientation i of the lists, counted round.
struct SyntheticSpec {
  std::vector<std::string> cameras = {"camera-frame"};          // keywords
  std::vector<std::string> orientations = {"ext-ori-opk-rot"};  // keywords
  std::vector<std::string> ap_sets = {};                        // keywords; set i is of camera i
  std::size_t images = 6;
  std::size_t points = 40;  // the first ones observed, the next ones free and known
  std::size_t triples = 0;  // of coefficients of both corrections; orientations are fixed then
  std::uint64_t seed = 1;
  double tilt = 0.7;             // of the images against the vertical [rad]
  double relief = 0.4;           // greatest height above and depth below the plane of the field
  bool control_on_line = false;  // the observed points lie on a line, exactly
  bool twins = false;            // the first two images have one projection centre
  double y_noise = 1.0;          // of image coordinates in y, in parts of that in x
};

inline constexpr double kSigmaImage = 2e-6;  // noise of image coordinates [m]

// The files of a project, control file "project.ctl", and what its parameters truly are.
// Identifiers are unique; a parameter's place in the list of its object is that of the adjustment.
struct SyntheticProject {
  std::map<std::string, std::string> files;
  std::map<std::string, std::vector<double>> truth;

  void write(const TempDir& dir) const {
    for (const auto& [file, text] : files) dir.write(file, text);
  }
};

// Simulates the exact scene and adds noise to measurements, control and approximations.
SyntheticProject make_synthetic_project(const SyntheticSpec& spec);

}  // namespace vorn::test
