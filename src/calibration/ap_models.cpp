#include "calibration/ap_models.h"

#include <array>
#include <initializer_list>

namespace vorn {

namespace {

constexpr std::array<std::string_view, 10> kGAPNames = {"dxp", "dyp", "dc", "sx", "a1",
                                                        "K1",  "K2",  "K3", "P1", "P2"};
constexpr std::array<std::string_view, 10> kAustralisNames = {"dxp", "dyp", "dc", "K1", "K2",
                                                              "K3",  "P1",  "P2", "b1", "b2"};
constexpr std::array<std::string_view, 3> kIONames = {"dxp", "dyp", "dc"};
constexpr std::array<std::string_view, 3> kRadialNames = {"K1", "K2", "K3"};
constexpr std::array<std::string_view, 2> kDecenteringNames = {"P1", "P2"};
// The numbering goes on where the in-plane model ends.
constexpr std::array<std::string_view, 3> kOutOfPlaneNames = {"a13", "a14", "a15"};

// The principal point's shifts dxp and dyp are in no grid: they are the same everywhere.
constexpr std::array<EffectGrid, 5> kGAPGrids = {{
    {"inner orientation (dc only):\n\n", "0010000000"},
    {"radial symmetric distortion (K1, K2, K3):\n\n", "0000011100"},
    {"decentering distortion (P1, P2):\n\n", "0000000011"},
    {"in-plane distortion (sx, a1):\n\n", "0001100000"},
    {"total distortion:\n\n", "0011111111"},
}};
constexpr std::array<EffectGrid, 5> kAustralisGrids = {{
    {"inner orientation (dc only):\n\n", "0010000000"},
    {"radial symmetric distortion (K1, K2, K3):\n\n", "0001110000"},
    {"decentering distortion (P1, P2):\n\n", "0000001100"},
    {"in-plane distortion (b1, b2):\n\n", "0000000011"},
    {"total distortion:\n\n", "0011111111"},
}};
constexpr std::array<EffectGrid, 1> kIOGrids = {{{"inner orientation (dc only):\n\n", "001"}}};

constexpr APModel kGAP = {"gap", "GAP", 10, kGAPNames, kGAPGrids};
constexpr APModel kAustralis = {"australis", "Australis", 10, kAustralisNames, kAustralisGrids};
constexpr APModel kP12 = {"p12", "12-parameter (Ebner)", 12};
constexpr APModel kP44 = {"p44", "44-parameter (Gruen)", 44};
constexpr APModel kIO = {"inner-or", "inner orientation", 3, kIONames, kIOGrids};
constexpr APModel kRadial = {"radial-dist", "radial distortion", 3, kRadialNames};
constexpr APModel kDecentering = {"decentering-dist", "decentering distortion", 2,
                                  kDecenteringNames};
constexpr APModel kInPlane = {"in-plane-dist", "in-plane distortion", 12};
constexpr APModel kOutOfPlane = {"out-of-plane-dist", "out-of-plane distortion", 3,
                                 kOutOfPlaneNames};

// The two rows of a derivative block, filled from left to right.
template <class T>
class Rows {
 public:
  explicit Rows(const RowPair<T>& rows) : at_(rows) {}
  // Derivatives of dx and dy with respect to the next parameter.
  void put(const T& dx, const T& dy) {
    *at_.x++ = dx;
    *at_.y++ = dy;
  }
  // One parameter for each term that acts on dx, then as many that act on dy.
  void put_on_both(std::initializer_list<T> terms) {
    for (const T& term : terms) put(term, 0.0);
    for (const T& term : terms) put(0.0, term);
  }

 private:
  RowPair<T> at_;
};

// The correction itself: the sum of the derivatives times the parameters, taken in the same order
// as rows.
template <class T>
class Sum {
 public:
  explicit Sum(const APSet& set) : value_(set.values()) {}
  void put(const T& dx, const T& dy) {
    total_[0] += dx * *value_;
    total_[1] += dy * *value_++;
  }
  void put_on_both(std::initializer_list<T> terms) {
    for (const T& term : terms) total_[0] += term * *value_++;
    for (const T& term : terms) total_[1] += term * *value_++;
  }
  const std::array<T, 2>& total() const { return total_; }

 private:
  const double* value_;
  std::array<T, 2> total_{0.0, 0.0};
};

// Rows and correction in one go, from terms that carry their derivatives with respect to the image
// point; the sum carries them, too.
template <class T>
class Linearised {
 public:
  Linearised(const APSet& set, const RowPair<T>& rows, std::array<Dual<T>, 2>& sum)
      : value_(set.values()), at_(rows), sum_(sum) {}
  void put(const Dual<T>& dx, const Dual<T>& dy) {
    add(dx, *at_.x++, sum_[0]);
    add(dy, *at_.y++, sum_[1]);
    ++value_;
  }
  void put(const Dual<T>& dx, double dy) {
    add(dx, *at_.x++, sum_[0]);
    add(dy, *at_.y++, sum_[1]);
    ++value_;
  }
  void put(double dx, const Dual<T>& dy) {
    add(dx, *at_.x++, sum_[0]);
    add(dy, *at_.y++, sum_[1]);
    ++value_;
  }
  void put(double dx, double dy) {
    add(dx, *at_.x++, sum_[0]);
    add(dy, *at_.y++, sum_[1]);
    ++value_;
  }
  void put_on_both(std::initializer_list<Dual<T>> terms) {
    for (const Dual<T>& term : terms) put(term, 0.0);
    for (const Dual<T>& term : terms) put(0.0, term);
  }

 private:
  void add(const Dual<T>& term, T& element, Dual<T>& sum) const {
    element = term.value;
    sum += term * *value_;
  }
  void add(double term, T& element, Dual<T>& sum) const {
    element = term;
    if (term != 0.0) sum.value += term * *value_;
  }

  const double* value_;
  RowPair<T> at_;
  std::array<Dual<T>, 2>& sum_;
};

// The terms of the models, put one parameter after the other into rows or into a sum.

// dxp, dyp, dc
template <class Terms, class T>
void put_inner_orientation(Terms& terms, const Vec3Of<T>& p) {
  const auto& [x, y, z] = p;
  terms.put(1.0, 0.0);
  terms.put(0.0, 1.0);
  terms.put(-x / z, -y / z);
}

// K1, K2, K3
template <class Terms, class T>
void put_radial(Terms& terms, const Vec3Of<T>& p) {
  const T x = p[0];
  const T y = p[1];
  const T r2 = x * x + y * y;
  const T r4 = r2 * r2;
  const T r6 = r4 * r2;
  terms.put(x * r2, y * r2);
  terms.put(x * r4, y * r4);
  terms.put(x * r6, y * r6);
}

// P1, P2
template <class Terms, class T>
void put_decentering(Terms& terms, const Vec3Of<T>& p) {
  const T x = p[0];
  const T y = p[1];
  const T xy2 = 2 * x * y;
  terms.put(3 * x * x + y * y, xy2);
  terms.put(xy2, x * x + 3 * y * y);
}

// ---- terms of the models ------------------------------------------------------------------------

// Each model puts the derivatives of (dx, dy), one parameter after the other, into the rows of a
// derivative block or into the correction; for one point or for a pack of points. Below, (x, y, z)
// is the reduced image point [m], z = -c, and r2 = x^2 + y^2; dx and dy are the corrections of the
// image coordinates.

// Inner orientation and the common distortions:
//   dx = dxp - dc x/z - sx x + a1 y + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (3x^2 + y^2) + 2 P2 xy
//   dy = dyp - dc y/z        + a1 x + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (x^2 + 3y^2)
struct GAP {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    const T x = point[0];
    const T y = point[1];
    put_inner_orientation(terms, point);
    terms.put(-x, 0.0);
    terms.put(y, x);
    put_radial(terms, point);
    put_decentering(terms, point);
  }
};

// The same effects in the Australis convention:
//   dx = dxp - dc x/z + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (r2 + 2x^2) + 2 P2 xy + b1 x + b2 y
//   dy = dyp - dc y/z + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (r2 + 2y^2)
struct Australis {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    const T x = point[0];
    const T y = point[1];
    const T r2 = x * x + y * y;
    put_inner_orientation(terms, point);
    put_radial(terms, point);
    terms.put(r2 + 2 * x * x, 2 * x * y);
    terms.put(2 * x * y, r2 + 2 * y * y);
    terms.put(x, 0.0);
    terms.put(y, 0.0);
  }
};

// dx = dxp - dc x/z,  dy = dyp - dc y/z
struct InnerOrientation {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    put_inner_orientation(terms, point);
  }
};

// (dx, dy) = (x, y) (K1 r2 + K2 r2^2 + K3 r2^3)
struct Radial {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    put_radial(terms, point);
  }
};

// dx = P1 (3x^2 + y^2) + 2 P2 xy,  dy = 2 P1 xy + P2 (x^2 + 3y^2)
struct Decentering {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    put_decentering(terms, point);
  }
};

// dx = a1 x + a2 y + a3 xy + a4 y^2 + a5 x^2y + a6 xy^2 + a7 x^2y^2
// dy = a8 xy + a9 x^2 + a10 x^2y + a11 xy^2 + a12 x^2y^2
struct InPlane {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    const T x = point[0];
    const T y = point[1];
    const T xy = x * y;
    for (const T& dx : {x, y, xy, y * y, x * xy, xy * y, xy * xy}) terms.put(dx, 0.0);
    for (const T& dy : {xy, x * x, x * xy, xy * y, xy * xy}) terms.put(0.0, dy);
  }
};

// (dx, dy) = (x, y)/z (a13 (x^2 - y^2) + a14 x^2y^2 + a15 (x^4 - y^4))
struct OutOfPlane {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSet&) {
    const auto& [x, y, z] = point;
    const T u = x / z;
    const T v = y / z;
    const T x2 = x * x;
    const T y2 = y * y;
    for (const T& term : {x2 - y2, x2 * y2, x2 * x2 - y2 * y2}) terms.put(term * u, term * v);
  }
};

// Polynomials orthogonal over a grid of 3 x 3 points (Ebner, 1976).
struct P12 {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSetP& set) {
    const T x = point[0];
    const T y = point[1];
    const double k = 0.6666666666666666 * (set.grid_width * set.grid_width);
    const T X = x * x - k;
    const T Y = y * y - k;
    terms.put(x, -y);
    terms.put(y, x);
    terms.put(-2 * X, x * y);
    terms.put(x * y, -2 * Y);
    terms.put(Y, 0.0);
    terms.put(0.0, X);
    terms.put(x * Y, 0.0);
    terms.put(0.0, y * X);
    terms.put(y * X, 0.0);
    terms.put(0.0, x * Y);
    terms.put(X * Y, 0.0);
    terms.put(0.0, X * Y);
  }
};

// Polynomials orthogonal over a grid of 5 x 5 points (Gruen, 1978).
// Auxiliary polynomials of degree 2 to 4, orthogonal over the grid:
//   X = x^2 - b^2/2,  A = x^2 - 0.85 b^2,  U = x^2 (x^2 - 31/28 b^2) + 9/70 b^4
// and Y, B, V likewise.
struct P44 {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APSetP& set) {
    constexpr double kFactor = -10.0 / 7.0;
    const T x = point[0];
    const T y = point[1];
    const T xy = x * y;
    const double b2 = set.grid_width * set.grid_width;
    const double q = 31.0 / 28.0 * b2;
    const double t = 9.0 / 70.0 * (b2 * b2);
    const T X = x * x - b2 / 2;
    const T Y = y * y - b2 / 2;
    const T A = x * x - 0.85 * b2;
    const T B = y * y - 0.85 * b2;
    const T U = x * x * (x * x - q) + t;
    const T V = y * y * (y * y - q) + t;
    terms.put(x, -y);
    terms.put(y, x);
    terms.put(xy, kFactor * Y);
    terms.put(Y, 0.0);
    terms.put(0.0, X);
    terms.put(kFactor * X, xy);
    terms.put_on_both({x * A, y * X, x * Y, y * B});
    terms.put_on_both({U, xy * A, X * Y, xy * B, V});
    terms.put_on_both({y * U, x * Y * A, y * X * B, x * V});
    terms.put_on_both({Y * U, xy * A * B, X * V});
    terms.put_on_both({y * B * U, x * A * V});
    terms.put_on_both({U * V});
  }
};

// ---- what follows from the terms ---------------------------------------------------------------

template <const APModel& kModel, class Model, class Base>
class APSetOf final : public Base {
 public:
  APSetOf() : Base(kModel) {}

  void get_derivs(const Vec3& point, DesignBlock& block) const override {
    block.a.resize(2, this->num_ap());
    block.index = this->index;
    Rows<double> rows({block.a[0], block.a[1]});
    Model::put(rows, point, *this);
  }
  Pair get_correction(const Vec3& point) const override {
    Sum<double> sum(*this);
    Model::put(sum, point, *this);
    return sum.total();
  }
  void get_packed_derivs(const Vec3Of<Pack>& point, const RowPair<Pack>& rows) const override {
    Rows<Pack> to(rows);
    Model::put(to, point, *this);
  }
  PackPair get_packed_correction(const Vec3Of<Pack>& point) const override {
    Sum<Pack> sum(*this);
    Model::put(sum, point, *this);
    return sum.total();
  }
  void linearise(const Vec3& point, const RowPair<double>& rows,
                 std::array<Dual<double>, 2>& sum) const override {
    linearise_at(point, rows, sum);
  }
  void linearise(const Vec3Of<Pack>& point, const RowPair<Pack>& rows,
                 std::array<Dual<Pack>, 2>& sum) const override {
    linearise_at(point, rows, sum);
  }

 private:
  template <class T>
  void linearise_at(const Vec3Of<T>& point, const RowPair<T>& rows,
                    std::array<Dual<T>, 2>& sum) const {
    Linearised<T> terms(*this, rows, sum);
    const Dual<T> x(point[0], 1.0, 0.0);
    const Dual<T> y(point[1], 0.0, 1.0);
    const Dual<T> z(point[2], 0.0, 0.0);
    Model::put(terms, Vec3Of<Dual<T>>{x, y, z}, *this);
  }
};

// ---- the models --------------------------------------------------------------------------------

struct ModelRow {
  Keyword keyword;
  std::unique_ptr<APSet> (*make)();
};

template <const APModel& kModel, class Model, class Base = APSet>
std::unique_ptr<APSet> make() {
  return std::make_unique<APSetOf<kModel, Model, Base>>();
}

constexpr ModelRow kModels[] = {
    {Keyword::gap, make<kGAP, GAP>},
    {Keyword::australis, make<kAustralis, Australis>},
    {Keyword::p12, make<kP12, P12, APSetP>},
    {Keyword::p44, make<kP44, P44, APSetP>},
    {Keyword::inner_or, make<kIO, InnerOrientation>},
    {Keyword::radial_dist, make<kRadial, Radial>},
    {Keyword::decentering_dist, make<kDecentering, Decentering>},
    {Keyword::in_plane_dist, make<kInPlane, InPlane>},
    {Keyword::out_of_plane_dist, make<kOutOfPlane, OutOfPlane>},
};

}  // namespace

int APSetP::read(TokenReader& in) {
  if (!read_ids(in)) return -1;
  in.read(grid_width, {"the grid width", Range::positive});
  grid_width *= 0.001;
  read_params(in);
  return 1;
}

void APSetP::write(TextWriter& out) const {
  write_ids(out);
  out << fixed(3, 6)(grid_width * 1000) << '\n';
  write_params(out);
}

void APSetP::print(TextWriter& out) const {
  print_ids(out);
  out << "Grid width  :  b = " << general(0, 3)(grid_width * 1000) << " mm\n";
  print_params(out);
}

std::unique_ptr<APSet> make_ap_set(Keyword keyword) {
  for (const ModelRow& row : kModels) {
    if (row.keyword == keyword) return row.make();
  }
  return nullptr;
}

std::vector<std::string_view> ap_model_keywords() {
  std::vector<std::string_view> keywords;
  for (const ModelRow& row : kModels) keywords.push_back(row.make()->get_keyword());
  return keywords;
}

}  // namespace vorn
