#pragma once

#include "lsq/stages/robust_loss.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// Weights of image points that follow from their residuals at the current values, by iteratively
// reweighted least squares.
void reweight(BundleProject& project, const Loss& loss);
// Back to the given weights.
void reset_weights(BundleProject& project);
// Lists the image points that weigh less than half of what was given, the lightest first.
void print_robust_weights(const BundleProject& project, TextWriter& report);

}  // namespace vorn
