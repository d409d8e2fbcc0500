#include "lsq/adj_object.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "lsq/adj_object_list.h"
#include "lsq/ls_params.h"
#include "lsq/normal_matrix.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

// An object of nothing but parameters.
class Parameters : public AdjObject {
 public:
  Parameters(std::vector<double> v, std::vector<double> s)
      : values(std::move(v)), std_devs(std::move(s)) {
    id = "p7";
  }
  void init_params() override {
    alloc_params(static_cast<std::uint32_t>(values.size()));
    for (std::size_t k = 0; k < values.size(); ++k) {
      set_param(static_cast<std::int32_t>(k), values[k], std_devs[k]);
    }
  }
  std::vector<double> values;
  std::vector<double> std_devs;
};

TEST(AdjObject, StateAndWeightFollowFromStandardDeviation) {
  const double smin = ls_params().smin;
  const double smax = ls_params().smax;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    double sigma;
    std::string_view state;
    double weight;
  } cases[] = {{1e-3, "obs", 1e-6},
               {smin, "obs", (1e-6 / smin) * (1e-6 / smin)},
               {smax, "obs", (1e-6 / smax) * (1e-6 / smax)},
               {std::nextafter(smin, 0.0), "eli", 1e10},
               {std::nextafter(smax, kInfinity), "unk", 0.0},
               {-1.0, "eli", 1e10},
               {kInfinity, "unk", 0.0},
               {std::numeric_limits<double>::quiet_NaN(), "unk", 0.0}};
  for (const auto& c : cases) {
    Parameters object({2.0}, {c.sigma});
    object.init_params();
    EXPECT_EQ(object.state_name(0), c.state) << c.sigma;
    EXPECT_DOUBLE_EQ(object.param(0).weight, c.weight) << c.sigma;
  }
}

TEST(AdjObject, WeightsPullBackAndCorrectionsSkipEliminated) {
  AdjObjectList list;
  Parameters other({0.0, 0.0}, {1e31, 1e31});
  Parameters object({1.0, 2.0, 3.0}, {1e31, 1e-6, 0.0});
  list.add(other);
  list.add(object);
  NormalMatrix normal;
  normal.resize(5);
  normal.zero();
  Vector rhs(5);
  rhs.zero();
  Vector corrections(5);
  for (std::int32_t i = 0; i < 5; ++i) corrections[i] = -0.25 * (i + 1);
  EXPECT_EQ(object.apply_corrections(corrections), 2);
  EXPECT_EQ(object.values, (std::vector<double>{0.25, 1.0, 3.0}));

  double vtpv = 5.0;
  list.add_weights(normal, rhs, vtpv);
  // The observed parameter has weight 1 and moved by -1.
  const double diagonal[] = {0.0, 0.0, 0.0, 1.0, 1e10};
  for (std::int32_t i = 0; i < 5; ++i) {
    EXPECT_DOUBLE_EQ(normal.at(i, i), diagonal[i]);
    EXPECT_DOUBLE_EQ(rhs[i], i == 3 ? 1.0 : 0.0);
  }
  EXPECT_DOUBLE_EQ(vtpv, 6.0);
}

// Changed by exactly 1.96 standard deviations; expected files of whole runs show the listings.
TEST(AdjObject, SignificanceExceedsItsLimit) {
  Parameters object({-2.0}, {1.0});
  AdjObjectList list;
  list.add(object);
  object.values[0] = -0.04;
  for (const std::string verdict : {"not", "is"}) {
    EXPECT_THAT(test::written_text([&](TextWriter& out) { object.print_significance(out); }),
                testing::HasSubstr("  1.000e+00     2.0  " + verdict + " significant\n"));
    ls_params().significance_limit = 1.9599;
  }
}

}  // namespace
}  // namespace vorn
