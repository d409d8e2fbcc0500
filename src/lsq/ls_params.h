#pragma once

#include <cstdint>

#include "base/units.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {

// Settings of the least-squares adjustment. One object serves the whole process: it starts with the
// defaults, is overwritten by each least-squares parameters file, and is never reset between runs.
struct LSParams {
  double sigma0_apriori = 1e-6;  // a-priori standard deviation of unit weight
  std::int32_t max_iterations = 10;
  // Unknowns that take part in the convergence test.
  bool check_points = false;
  bool check_position = false;
  bool check_rotation = true;
  bool check_geometry = true;
  // Convergence limits: largest correction that still counts as converged.
  double limit_points = 0.001;
  double limit_position = 0.001;
  double limit_rotation = 1e-6;
  double limit_geometry = 1e-8;
  // Standard deviations below smin fix an unknown, above smax free it; sminu and smaxu are the
  // values written to say so.
  double smin = 1e-30;
  double smax = 1e30;
  double sminu = 1e-31;
  double smaxu = 1e31;
  double weight_suppression = 1e10;  // weight of eliminated unknowns
  double weight_constraints = 1e10;  // weight of condition equations
  double correlation_limit = 0.8;    // kept for the file format; nothing consults it
  double increment_points = 1.0;     // likewise
  double increment_angles = 0.001;   // likewise
  double significance_limit = 1.96;
  double apv_limit = 1e-4;
  double residual_limit = 1e-5;  // [m]; micrometres in the file and in print
  UnitLength unit_object{"m"};
  UnitLength unit_second{"m"};  // kept as part of the record; never read and never consulted
  UnitAngle unit_angles{"rad"};
  std::int32_t interface = 0;  // normal-equation solver: 0 native, 1 lapack

  // True for a standard deviation of an observed unknown (limits included).
  bool is_observed(double sigma) const { return smin <= sigma && sigma <= smax; }

  // Reads a least-squares parameters file. 1 on success; -1 with a message on standard output.
  // Fields read before a failure keep their new values.
  [[nodiscard]] int read(TokenReader& in);
  // Writes the block "Least-squares parameters/options".
  void print(TextWriter& out) const;
};

// The process-wide settings.
LSParams& ls_params();

}  // namespace vorn
