#include "report/residuals.h"

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "calibration/camera_formulas.h"
#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/image_projection.h"
#include "sensors/image_ranges.h"
#include "sensors/point_share.h"
#include "text/kept_console.h"
#include "text/ordered_ranges.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

// Writes metres as micrometres.
constexpr double kMicrometres = 1e6;

// The two statistics lines and the empty line behind them. Without points they show 0/0.
void print_statistics(TextWriter& out, const ResidualStatistics& statistics) {
  constexpr NumberFormat kResidual = fixed(2, 10);
  out << "RMS of residuals       :   " << kResidual(statistics.rms_vx() * kMicrometres) << "   "
      << kResidual(statistics.rms_vy() * kMicrometres) << '\n';
  out << "Average of residuals   :   " << kResidual(statistics.mean_vx() * kMicrometres) << "   "
      << kResidual(statistics.mean_vy() * kMicrometres) << "\n\n";
}

void print_residual(TextWriter& out, const PointResidual& r) {
  constexpr NumberFormat kResidual = fixed(2, 10);
  constexpr std::string_view kComponents[] = {" X", " Y", " Z"};
  out << "  " << right_aligned(r.image_point->id, 8) << "  " << kResidual(r.vx * kMicrometres)
      << ' ' << kResidual(r.vy * kMicrometres) << ' '
      << kResidual(std::sqrt(r.vx * r.vx + r.vy * r.vy) * kMicrometres);
  if (r.object_point->type == PointType::control) {
    out << "   control point for";
    for (std::size_t c = 0; c < 3; ++c) {
      if (r.object_point->std_devs[c] <= ls_params().smax) out << kComponents[c];
    }
  }
  out << '\n';
}

// The block of one image; residuals below the limit in both coordinates are not listed.
void print_image(TextWriter& out, const ImageResiduals& residuals, double limit) {
  out << "BundleImage ID : " << residuals.image->id << "\n\n";
  out << "  Point ID       vx/um      vy/um     |v|/um\n\n";
  for (const PointResidual& r : residuals.points) {
    if (r.object_point == nullptr) {
      out << "ATTENTION: Object point " << r.image_point->id << " not found\n";
    } else if (std::fabs(r.vx) >= limit || std::fabs(r.vy) >= limit) {
      print_residual(out, r);
    }
  }
  out << "\nNumber of points       :   " << residuals.statistics.count << '\n';
  print_statistics(out, residuals.statistics);
}

// The block of one image in the residual file.
void write_image(TextWriter& out, const ImageResiduals& residuals) {
  constexpr NumberFormat kResidual = fixed(3, 10);
  out << residuals.image->id << '\n';
  for (const PointResidual& r : residuals.points) {
    if (r.object_point == nullptr) {
      standard_output() << "ATTENTION: Object point " << r.image_point->id << " not found\n";
      continue;
    }
    out << "  " << right_aligned(r.image_point->id, 8) << "  " << kResidual(r.vx * kMicrometres)
        << ' ' << kResidual(r.vy * kMicrometres) << '\n';
  }
  out << "stop-dep\n";
}

void print_summary(TextWriter& out, const ResidualStatistics& total, std::int32_t redundancy) {
  out << "\nSummary for all image points of all images\n"
         "------------------------------------------\n"
         "                                vx/um        vy/um\n\n";
  out << "Total number of points :   " << total.count << '\n';
  print_statistics(out, total);
  out << "Contribution to vtpv and sigma 0:   " << scientific(3)(total.pvv) << " m^2   ";
  const double sigma0 = total.sigma0(redundancy);
  if (sigma0 == 0.0) {
    out << "undefined, no redundancy!\n";
  } else {
    out << fixed(2)(sigma0 * kMicrometres) << " um\n";
  }
  out << "Redundancy :   " << redundancy << "\n\n";
}

}  // namespace

void ResidualStatistics::add(const PointResidual& r) {
  ++count;
  sum_vx += r.vx;
  sum_vy += r.vy;
  sum_vx2 += r.vx * r.vx;
  sum_vy2 += r.vy * r.vy;
  pvv += r.px * r.vx * r.vx + r.py * r.vy * r.vy;
}

void ResidualStatistics::add(const ResidualStatistics& other) {
  count += other.count;
  sum_vx += other.sum_vx;
  sum_vy += other.sum_vy;
  sum_vx2 += other.sum_vx2;
  sum_vy2 += other.sum_vy2;
  pvv += other.pvv;
}

void compute_residuals(const BundleImage& image, const OwnedList<ObjectPoint>& object_points,
                       ImageResiduals& residuals) {
  const Camera& camera = *image.camera;
  const double sigma0 = ls_params().sigma0_apriori;
  residuals.image = &image;
  residuals.points.clear();
  residuals.statistics = {};
  residuals.projected.clear();
  for (const ImagePoint& point : image.points) {
    residuals.projected.push_back(object_point_of(point, object_points));
  }
  ImageProjection(image).find_coords(residuals.projected, residuals.computed);
  std::size_t k = 0;
  for (const ImagePoint& point : image.points) {
    PointResidual& r = residuals.points.emplace_back();
    r.image_point = &point;
    r.object_point = residuals.projected[k];
    const Pair& computed = residuals.computed[k++];
    if (r.object_point == nullptr) continue;
    const Pair measured = camera.pixel_to_image({point.x, point.y});
    const Pair sdev = camera.sdev_to_image({point.sx, point.sy});
    const Pair l = misclosure_of(measured, computed);
    // From 0, so that no residual is a negative zero.
    r.vx = 0.0 - l[0];
    r.vy = 0.0 - l[1];
    r.px = (sigma0 / sdev[0]) * (sigma0 / sdev[0]);
    r.py = (sigma0 / sdev[1]) * (sigma0 / sdev[1]);
    residuals.statistics.add(r);
  }
}

void BundleProject::write_residuals(TextWriter& res, TextWriter& report) const {
  const double limit = ls_params().residual_limit;
  report << "Residuals of image coords.\n"
            "==========================\n";
  report << "Limit for printing residuals:  " << fixed(2)(limit * kMicrometres) << " um\n\n";
  std::vector<ResidualStatistics> statistics(num_slots(images));
  // Points without an image, by image: projecting them is said for the file and for the section.
  std::vector<std::string> errors(num_slots(images));
  const auto write = [&](TextWriter& records, TextWriter& list, std::size_t begin,
                         std::size_t end) {
    ImageResiduals residuals;
    for (std::size_t slot = begin; slot < end; ++slot) {
      BundleImage* const image = images[static_cast<std::int32_t>(slot)];
      if (image == nullptr) continue;
      const CompleteImage complete(*image);
      {
        KeptConsole console;
        compute_residuals(*image, object_points, residuals);
        errors[slot] = console.take_error();
      }
      error_output() << errors[slot];
      write_image(records, residuals);
      print_image(list, residuals, limit);
      statistics[slot] = residuals.statistics;
    }
  };
  write_ranges(res, report, num_slots(images), complete_images_per_range(images), write);
  for (const std::string& text : errors) error_output() << text;
  res << "stop-dep\n";
  ResidualStatistics total;
  for (const ResidualStatistics& image : statistics) total.add(image);
  print_summary(report, total, redundancy);
}

}  // namespace vorn
