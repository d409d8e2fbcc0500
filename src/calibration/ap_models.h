#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "calibration/ap_set.h"
#include "text/keywords.h"

namespace vorn {

// Base of the two models that are orthogonal over a regular grid of image points.
class APSetP : public APSet {
 public:
  using APSet::APSet;

  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;
  APTerms terms() const override;

  double grid_width = 0.0;  // b: the outer points of the grid lie at -b and +b [m]
};

// An empty set of one of the nine models, the one that a keyword of the AP-set file names; null for
// any other keyword.
std::unique_ptr<APSet> make_ap_set(Keyword keyword);
// The keywords of the nine models.
std::vector<std::string_view> ap_model_keywords();

}  // namespace vorn
