#include "lsq/adj_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "lsq/adj_object_list.h"
#include "lsq/normal_matrix.h"
#include "support/captured_output.h"
#include "support/ls_params_guard.h"

namespace vorn {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// An object of nothing but parameters.
class Parameters : public AdjObject {
 public:
  Parameters(std::string name, std::vector<double> v, std::vector<double> s)
      : values(std::move(v)), std_devs(std::move(s)) {
    id = std::move(name);
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

class AdjObjectTest : public testing::Test {
 private:
  test::LSParamsGuard guard_;
};

TEST_F(AdjObjectTest, StateFollowsFromStandardDeviation) {
  struct Case {
    double sigma;
    std::string_view state;
    double weight;
  };
  const double smin = ls_params().smin;
  const double smax = ls_params().smax;
  const Case cases[] = {
      {1e-3, "obs", 1e-6},
      {smin, "obs", (1e-6 / smin) * (1e-6 / smin)},
      {smax, "obs", (1e-6 / smax) * (1e-6 / smax)},
      {std::nextafter(smin, 0.0), "eli", 1e10},
      {std::nextafter(smax, kInfinity), "unk", 0.0},
      {0.0, "eli", 1e10},
      {-1.0, "eli", 1e10},
      {1e31, "unk", 0.0},
      {kInfinity, "unk", 0.0},
      {kNaN, "unk", 0.0},
  };
  for (const Case& c : cases) {
    Parameters object("a", {2.0}, {c.sigma});
    const std::string output = test::captured_output([&] { object.init_params(); });
    EXPECT_EQ(object.state_name(0), c.state) << c.sigma;
    EXPECT_DOUBLE_EQ(object.param(0).weight, c.weight) << c.sigma;
    EXPECT_EQ(output, "");
    if (!std::isnan(c.sigma)) {
      EXPECT_EQ(AdjObject::state_name_of_sd(c.sigma), c.state) << c.sigma;
    }
  }
  EXPECT_EQ(test::captured_output([] { EXPECT_EQ(AdjObject::state_name_of_sd(kNaN), ""); }),
            "ERROR: Invalid standard deviation: nan\n");
  EXPECT_EQ(state_label(ParamState{3}), "");
}

TEST_F(AdjObjectTest, WeightsPullBackAndCorrectionsSkipEliminated) {
  AdjObjectList list;
  Parameters other("first", {0.0, 0.0}, {1e31, 1e31});
  Parameters object("a", {1.0, 2.0, 3.0}, {1e31, 1e-6, 0.0});
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
  const double right[] = {0.0, 0.0, 0.0, 1.0, 0.0};
  for (std::int32_t i = 0; i < 5; ++i) {
    EXPECT_DOUBLE_EQ(normal.at(i, i), diagonal[i]);
    EXPECT_DOUBLE_EQ(rhs[i], right[i]);
    for (std::int32_t j = i + 1; j < 5; ++j) EXPECT_EQ(normal.at(i, j), 0.0);
  }
  EXPECT_DOUBLE_EQ(vtpv, 6.0);

  double sum = 1.0;
  std::int32_t count = 1;
  object.sum_abs_corrections(corrections, sum, count);
  EXPECT_DOUBLE_EQ(sum, 1.0 + 0.75 + 1.0);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(object.check_convergence(corrections), -1);
}

TEST_F(AdjObjectTest, ListNumbersObjectsInOrder) {
  AdjObjectList list;
  EXPECT_EQ(list.num_unknowns() + list.num_constraints() + list.count_state(ParamState::unknown),
            0);
  Parameters a("A", {1, 2, 3}, {1, 1e31, 0});
  Parameters b("B", {1, 2, 3, 4, 5, 6}, {1, 1, 1, 1, 1, 0});
  Parameters c("C", {}, {});
  Parameters d("D", {1, 2}, {1e31, 1e31});
  EXPECT_EQ(a.index, -1);
  for (Parameters* object : {&a, &b, &c, &d}) list.add(*object);
  EXPECT_EQ(a.index, 0);
  EXPECT_EQ(b.index, 3);
  EXPECT_EQ(c.index, 9);
  EXPECT_EQ(d.index, 9);
  EXPECT_EQ(list.num_unknowns(), 11);
  EXPECT_EQ(list.count_state(ParamState::observed), 6);
  EXPECT_EQ(list.count_state(ParamState::eliminated), 2);
  const AdjObjectList::Counts counts = list.count_group<Parameters>();
  EXPECT_EQ(counts.total, 11);
  EXPECT_EQ(counts.observed, 6);
  EXPECT_EQ(counts.eliminated, 2);
}

// Reports show the other two listings; see the expected files of whole projects.
TEST_F(AdjObjectTest, ResultListingsAreExact) {
  Parameters object("p7", {1.5, -2.0, 1e10}, {1e31, 1.0, 1e-31});
  AdjObjectList list;
  list.add(object);
  object.values[0] = 1.25;
  object.values[1] = -0.04;  // changed by exactly 1.96 standard deviations
  EXPECT_EQ(test::written_text([&](TextWriter& out) { object.print_results(out); }),
            "ID     :  p7\n"
            "Type   :  undefined\n"
            "Index  :  0\n\n"
            "  Param.    State      Initial      Adjusted        Change      Std.dev.\n\n"
            "  x[0]      unk      1.500e+00     1.250e+00    -2.500e-01     1.000e+31\n"
            "  x[1]      obs     -2.000e+00    -4.000e-02     1.960e+00     1.000e+00\n"
            "  x[2]      eli      1.000e+10     1.000e+10     0.000e+00     1.000e-31\n\n");
  const std::string significance =
      "ID     :  p7\n"
      "Type   :  undefined\n"
      "Index  :  0\n\n"
      "  Param.    State     Initial     Adjusted       Change     Std.dev.   Ratio\n\n"
      "  x[0]      unk     1.500e+00    1.250e+00   -2.500e-01    1.000e+31     0.0  not "
      "significant\n"
      "  x[1]      obs    -2.000e+00   -4.000e-02    1.960e+00    1.000e+00     2.0  ";
  const std::string eliminated =
      "\n  x[2]      eli     1.000e+10    1.000e+10    0.000e+00    1.000e-31     0.0  is "
      "eliminated\n\n";
  const auto print = [&](TextWriter& out) { object.print_significance(out); };
  EXPECT_EQ(test::written_text(print), significance + "not significant" + eliminated);
  ls_params().significance_limit = 1.9599;
  EXPECT_EQ(test::written_text(print), significance + "is significant" + eliminated);
}

}  // namespace
}  // namespace vorn
