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
  std::int32_t images = 6;
  std::int32_t points = 40;
  std::int32_t control = 8;           // the first points, observed
  std::int32_t check = 6;             // the next ones, free and known
  std::int32_t position_triples = 0;  // order of the correction + 1; orientations are fixed then
  std::int32_t attitude_triples = 0;  // likewise
  double sigma_image = 2e-6;          // noise of image coordinates [m]
  double sigma_control = 2e-5;        // noise of control coordinates [m]
  std::string angle_unit = "gon";
  std::uint64_t seed = 1;
};

// The files of a project, control file "project.ctl", and what its parameters truly are.
// Identifiers are unique; a parameter's place in the list of its object is that of the adjustment.
struct SyntheticProject {
  std::map<std::string, std::string> files;
  std::map<std::string, std::vector<double>> truth;

  // Writes all files; returns the path of the control file.
  std::string write(const TempDir& dir) const;
};

// Simulates the exact scene and adds noise to measurements, control and approximations.
SyntheticProject make_synthetic_project(const SyntheticSpec& spec);

}  // namespace vorn::test
