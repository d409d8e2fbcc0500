// Prepares the adjustment: binds what was read separately, completes and checks the data, numbers
// the unknowns and chooses the solver.

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "base/cpu_clock.h"
#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/normal_equations.h"
#include "sensors/point_share.h"

namespace vorn {
namespace {

constexpr NumberFormat kTime = fixed(4, 12);
constexpr NumberFormat kCpuTime = fixed(2);
constexpr int kCountWidth = 6;

int refuse(TextWriter& report, std::string_view what, std::string_view id) {
  report << "ERROR: Attach " << what << id << " failed.\n";
  return -1;
}

// Binds images to geometries, sets to cameras and corrections to orientations. 1 or -1.
int attach_all(BundleProject& project, TextWriter& report) {
  for (BundleImage& image : project.images) {
    if (!image.attach_geometry(project.image_geometries)) {
      return refuse(report, "EO for image ", image.id);
    }
    image.used = true;
  }
  for (APSet& set : project.ap_sets) {
    if (set.bind_to_camera(project.cameras) != 1) return refuse(report, "AP set ", set.id);
  }
  for (PosCorrection& correction : project.pos_corrections) {
    if (correction.bind_to_eos(project.image_geometries) != 1) {
      return refuse(report, "position correction ", correction.id);
    }
  }
  for (AttCorrection& correction : project.att_corrections) {
    if (correction.bind_to_eos(project.image_geometries) != 1) {
      return refuse(report, "attitude correction ", correction.id);
    }
  }
  return 1;
}

// Completes the object-point approximations and removes what cannot be adjusted. 1 or -1.
int prepare_data(BundleProject& project, TextWriter& report) {
  const Options& options = project.options;
  if (project.check_approximations(options.print_check_approximations ? &report : nullptr) != 1) {
    report << "ERROR: Check of object point approximations failed.\n";
    return -1;
  }
  TextWriter* const ray_trace = options.print_check_rays ? &report : nullptr;
  project.check_rays_per_point(ray_trace);
  project.check_rays_per_image(ray_trace);
  for (ImageGeometry& geometry : project.image_geometries) geometry.update();
  if (project.intersect_approximations(options.print_intersection ? &report : nullptr,
                                       options.debug_intersection) != 1) {
    report << "ERROR: Calculation of object point approximations failed.\n";
  }
  project.clean_up(&report);
  return 1;
}

// Reports the time interval of the orientations and refers the corrections to its start.
void set_reference_time(BundleProject& project, TextWriter& report) {
  double t_min = 0.0;
  double t_max = 0.0;
  bool first = true;
  for (const ImageGeometry& geometry : project.image_geometries) {
    const double t = geometry.exposure_time;
    t_min = first ? t : std::min(t_min, t);
    t_max = first ? t : std::max(t_max, t);
    first = false;
  }
  report << "Time interval\n"
            "-------------\n"
            "t_min        = "
         << kTime(t_min) << " s\n"
         << "t_max        = " << kTime(t_max) << " s\n"
         << "duration dt  = " << kTime(t_max - t_min) << " s\n\n";
  for (PosCorrection& correction : project.pos_corrections) correction.t0 = t_min;
  for (AttCorrection& correction : project.att_corrections) correction.t0 = t_min;
  report << "Reference time t0 (= t_min) = " << kTime(t_min) << " s\n\n";
}

// The order of registration numbers the unknowns and lays out the normal matrix.
void register_unknowns(BundleProject& project) {
  AdjObjectList& unknowns = project.unknowns;
  unknowns.add_all(project.object_points);
  unknowns.add_all(project.image_geometries);
  unknowns.add_all(project.ap_sets);
  unknowns.add_all(project.pos_corrections);
  unknowns.add_all(project.att_corrections);
  if (PointShare* const share = point_share()) share->number_unknowns(project);
}

void print_count(TextWriter& report, std::string_view label, std::int32_t count) {
  report << label;
  report.integer(count, kCountWidth) << '\n';
}

void print_group(TextWriter& report, std::string_view label, AdjObjectList::Counts counts) {
  report << label;
  report.integer(counts.total, kCountWidth) << "   ";
  report.integer(counts.observed, kCountWidth) << "   ";
  report.integer(counts.eliminated, kCountWidth) << '\n';
}

void print_defined_data(const BundleProject& project, TextWriter& report) {
  std::int32_t control = 0;
  std::int32_t check = 0;
  for (const ObjectPoint& point : project.object_points) {
    control += point.type == PointType::control ? 1 : 0;
    check += point.type == PointType::check ? 1 : 0;
  }
  report << "Data defined for adjustment\n"
            "---------------------------\n";
  print_count(report, "Images                      :  ", project.images.count());
  print_count(report, "Cameras                     :  ", project.cameras.count());
  print_count(report, "Exterior orientations       :  ", project.image_geometries.count());
  print_count(report, "Additional parameter sets   :  ", project.ap_sets.count());
  print_count(report, "Position corrections        :  ", project.pos_corrections.count());
  print_count(report, "Attitude corrections        :  ", project.att_corrections.count());
  print_count(report, "Object points (total)       :  ", in_total(project.object_points.count()));
  print_count(report, "Control points              :  ", in_total(control));
  print_count(report, "Check points                :  ", in_total(check));
  report << '\n';
}

// Counts observations and unknowns, computes the a-priori redundancy and reports them.
void report_counts(BundleProject& project, TextWriter& report) {
  std::int32_t image_points = 0;
  for (const BundleImage& image : project.images) image_points += image.count_points();
  const AdjObjectList& unknowns = project.unknowns;
  const Redundancy counts = redundancy_of(unknowns, 2 * image_points);
  project.redundancy = counts.value();

  print_defined_data(project, report);
  report << "Number of observations, unknowns and redundancy\n"
            "-----------------------------------------------\n"
            "Observations:\n";
  print_count(report, "   BundleImage point coordinates      :  ", counts.observations);
  print_count(report, "   Total number of observations :  ", counts.observations);
  report << "\nUnknowns:                           total        thereof\n"
            "                                              obs.     eli.\n";
  print_group(report,
              "   Object point coordinates     :  ", in_total(unknowns.count_group<ObjectPoint>()));
  print_group(report, "   Exterior orientations        :  ", unknowns.count_group<ImageGeometry>());
  print_group(report, "   Additional parameters        :  ", unknowns.count_group<APSet>());
  print_group(report, "   Position corrections         :  ", unknowns.count_group<PosCorrection>());
  print_group(report, "   Attitude corrections         :  ", unknowns.count_group<AttCorrection>());
  print_group(report, "   Total number of unknowns     :  ",
              {counts.unknowns, counts.observed, counts.eliminated});
  report << '\n';
  print_count(report, "Constraints                     :  ", counts.constraints);
  report << '\n';
  print_count(report, "Redundancy                      :  ", project.redundancy);
  report << '\n';
}

// Small systems gain nothing from their structure. A file of the matrix shows the factor in the
// order of the unknowns.
AdjInterfaceNative::Method method_for(const BundleProject& project, std::int32_t size) {
  using Method = AdjInterfaceNative::Method;
  constexpr std::int32_t kSmall = 256;
  if (size <= kSmall) return Method::dense;
  return project.options.matrix_file == "none" ? Method::eliminate : Method::eliminate_in_order;
}

// The couplings of points are formed again where they are needed, which takes less memory and no
// more time than fetching them, unless somebody wants to see the matrix, or images add their
// equations point by point.
NormalMatrix::PointCouplings couplings_for(const BundleProject& project,
                                           AdjInterfaceNative::Method method) {
  using Couplings = NormalMatrix::PointCouplings;
  if (method != AdjInterfaceNative::Method::eliminate) return Couplings::stored;
  if (project.options.structure_file != "none") return Couplings::stored;
  for (const BundleImage& image : project.images) {
    if (!takes_packs(image)) return Couplings::stored;
  }
  return Couplings::formed;
}

// False when the factor does not fit the address space.
bool make_solver(BundleProject& project, AdjInterfaceNative::Method method) {
  if (PointShare* const share = point_share()) {
    project.solver = share->make_solver();
    return true;
  }
  auto solver = std::make_unique<AdjInterfaceNative>(method);
  const bool fits = solver->prepare(project.normal);
  project.solver = std::move(solver);
  return fits;
}

// Chooses the solver and lays the normal equations out. 1 or -1.
int choose_solver(BundleProject& project, TextWriter& report) {
  if (ls_params().interface != 0) {
    report << "ERROR: Unkown adjustment interface.\n";
    return -1;
  }
  const std::int32_t size = project.unknowns.num_unknowns();
  const auto method = method_for(project, redundancy_of(project.unknowns, 0).unknowns);
  if (!project.normal.set_structure(find_structure(project), couplings_for(project, method)) ||
      !make_solver(project, method)) {
    report << "ERROR: The normal equations of " << size
           << " unknowns do not fit the address space.\n";
    return -1;
  }
  // Small systems are summed image point by image point: a condition of great weight (a free
  // quaternion's) makes the first iterations depend on the order of the sums.
  if (method != AdjInterfaceNative::Method::dense) {
    project.observations.set_up(project.images, project.object_points,
                                project.settings.derivatives(), project.normal);
  }
  project.rhs.resize(size);
  project.markers.resize(size);
  project.solution.resize(size);
  // Files of a run without any iteration show zeros.
  if (ls_params().max_iterations < 1) project.normal.zero();
  project.rhs.zero();
  project.markers.zero();
  project.solution.zero();
  return 1;
}

}  // namespace

int BundleProject::initialise(TextWriter& report) {
  const CpuClock clock;
  report << "*** Start initialize adjustment\n\n";
  if (attach_all(*this, report) != 1) return -1;
  if (prepare_data(*this, report) != 1) return -1;
  set_reference_time(*this, report);
  register_unknowns(*this);
  report_counts(*this, report);
  if (options.debug_upari_table) {
    unknowns.print_table(standard_output());
    standard_output().flush();
  }
  if (choose_solver(*this, report) != 1) return -1;
  report << "Elapsed cpu time to initialize adjustment: " << kCpuTime(clock.seconds()) << " s\n\n";
  return 1;
}

}  // namespace vorn
