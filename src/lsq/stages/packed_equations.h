#pragma once

#include <cstdint>
#include <vector>

#include "base/pack.h"
#include "base/row_pair.h"
#include "calibration/ap_formulas.h"
#include "geometry/collinearity.h"
#include "lsq/linalg/kernels.h"
#include "sensors/inner_orientation.h"

namespace vorn {

// What the observation equations of an image's points take of the image: plain data, which code
// for any processor can read. The geometry is an exterior orientation.
struct PackedImage {
  // A polynomial in time whose components add to three parameters of the orientation.
  struct Correction {
    double tau;               // time of exposure since the reference time [s]
    std::int32_t num_values;  // of its coefficients
    std::int32_t first;       // column of the first of the parameters
  };

  const Perspective* perspective = nullptr;  // the orientation's own: as of its last update
  InnerOrientation camera{};
  bool exact = false;  // derivatives
  std::vector<APTerms> sets;
  std::vector<Correction> corrections;
};

// Observations and object points of eight image points side by side.
struct PackedPoints {
  PackPair observed;  // [m]
  Vec3Of<Pack> object;
};

// Where their design rows go: those of the object point, three packs, those of orientation, sets
// and corrections; and the misclosures, two packs, or null.
struct PackedDesign {
  RowPair<Pack*> point;
  RowPair<Pack*> rows;
  Pack* misclosure;
};

// Forms design rows. False, with rows that are of no use, when a point lies in the plane of the
// projection centre.
using FormPackedDesign = bool (*)(const PackedImage& image, const PackedPoints& points,
                                  const PackedDesign& design);
// Finds the image coordinates of object points; likewise.
using FindPackedCoords = bool (*)(const PackedImage& image, const Vec3Of<Pack>& object,
                                  PackPair& coords);

// Compiled for several instruction sets that all give the same bytes.
struct PackedFormulas {
  FormPackedDesign form_design;
  FindPackedCoords find_coords;
};
// The version that belongs to the kernels in use.
PackedFormulas packed_formulas();

// The versions there are; null where they were not compiled.
PackedFormulas packed_formulas_for(InstructionSet instructions);
PackedFormulas baseline_packed_formulas();
PackedFormulas avx2_packed_formulas();
PackedFormulas avx512_packed_formulas();

}  // namespace vorn
