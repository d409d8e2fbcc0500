#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/owned_list.h"
#include "calibration/ap_set.h"
#include "calibration/corrections.h"
#include "driver/options.h"
#include "geometry/image_geometry.h"
#include "lsq/adj_interface.h"
#include "lsq/adj_object_list.h"
#include "lsq/adjustment_settings.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/stages/held_point.h"
#include "lsq/stages/iteration_observer.h"
#include "lsq/stages/observation_table.h"
#include "lsq/stages/statistics.h"
#include "report/data_checks.h"
#include "sensors/bundle_image.h"
#include "sensors/camera.h"
#include "sensors/object_point.h"
#include "text/findings.h"
#include "text/output_files.h"

namespace vorn {

// Everything that one run reads and computes. It owns every object read; all other references to
// them are non-owning. Each stage of a run is one operation, implemented in the folder of its
// stage.
class BundleProject {
 public:
  BundleProject() = default;
  ~BundleProject();
  BundleProject(const BundleProject&) = delete;
  BundleProject& operator=(const BundleProject&) = delete;

  // Reads the data files that the control file names. 1 or -1 (driver/control_file.cpp).
  [[nodiscard]] int read_control_file(TokenReader& in);

  // Prepares the adjustment. 1 or -1 (lsq/stages/initialisation.cpp).
  [[nodiscard]] int initialise(TextWriter& report);
  // Runs the iterations. 1 or -1 (lsq/stages/iteration.cpp).
  [[nodiscard]] int iterate(TextWriter& report);

  // Makes sure that every measured point exists as an object point (lsq/stages/intersection.cpp).
  // Here and below, a null stream means to work silently.
  int check_approximations(TextWriter* out);
  // Computes missing object-point coordinates from all pairs of their rays
  // (lsq/stages/intersection.cpp).
  int intersect_approximations(TextWriter* out, bool debug);

  // Counts rays and removes what is under-determined or unused (report/data_checks.cpp).
  void check_rays_per_point(TextWriter* out);
  void check_rays_per_image(TextWriter* out);
  void clean_up(TextWriter* out);

  // Sections of the report (report/sections.cpp, report/residuals.cpp, report/point_analysis.cpp).
  void print_image_coords(TextWriter& out) const;
  void print_cameras(TextWriter& out) const;
  void print_ap_sets(TextWriter& out) const;
  void print_exterior_orientations(TextWriter& out) const;
  void print_object_points(TextWriter& out) const;
  void print_control_residuals(TextWriter& out) const;
  void print_check_points(TextWriter& out) const;
  // Records of the result files (report/result_files.cpp).
  void write_ap_sets(TextWriter& out) const;
  void write_exterior_orientations(TextWriter& out) const;
  void write_object_points(TextWriter& out) const;
  // The residuals are formed once for both, their file and the report.
  void write_residuals(TextWriter& res, TextWriter& report) const;
  void write_cameras(TextWriter& out) const;

  // Deletes all owned objects.
  void clear();

  // Receives what a strict reader finds wrong with the data files; null when nobody asks. Set
  // before reading, which is the same either way. It remembers where the objects were read.
  FindingListener* findings = nullptr;

  Options options;
  AdjustmentSettings settings;
  OwnedList<BundleImage> images;
  OwnedList<Camera> cameras;
  OwnedList<ObjectPoint> object_points;
  OwnedList<ImageGeometry> image_geometries;
  OwnedList<APSet> ap_sets;
  OwnedList<PosCorrection> pos_corrections;
  OwnedList<AttCorrection> att_corrections;
  AdjObjectList unknowns;

  // The image points in the order of the normal matrix; empty for small systems.
  ObservationTable observations;

  // Normal equations N x = n of the current iteration.
  NormalMatrix normal;
  Vector rhs;
  Vector markers;  // diagonal of the factor
  Vector solution;

  double lPl = 0.0;  // weighted sum of squared reduced observations
  double vtpv = 0.0;
  double sigma0 = 0.0;  // a posteriori [m]
  std::int32_t redundancy = 0;
  std::int32_t num_iterations = 0;   // of the last iteration loop
  std::int32_t failed_unknown = -1;  // where the last factorisation stopped; -1: it did not
  bool converged = false;            // whether it ended before the maximum number
  IterationEnding ending = IterationEnding::max_iterations;
  bool ended_from_outside = false;  // by the observer of the iterations, before any of these
  // Object points that damped iterations held or moved, in the order in which that happened.
  std::vector<HeldPoint> held_points;
  // What each iteration came to; the last one may have failed half-way.
  std::vector<IterationStatistics> iterations;
  std::unique_ptr<AdjInterface> solver;

  // What the checks before the adjustment removed, in that order.
  std::vector<Removal> removed_objects;
  // Where the numbers ceased to be finite, if they did.
  NonFiniteValue non_finite;

  // The run that the project belongs to: its files, for those that a stage writes, and who watches
  // reading and iterations. All may be missing. The first is told the part of the data files' bytes
  // that is read; when it says false, reading ends with the running file and fails.
  OutputFiles* outputs = nullptr;
  std::function<bool(double fraction)> on_reading;
  IterationObserver on_iteration;
};

}  // namespace vorn
