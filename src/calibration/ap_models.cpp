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
class Rows {
 public:
  Rows(DesignBlock& block, const APSet& set) {
    block.a.resize(2, set.num_ap());
    block.index = set.index;
    x_ = block.a[0];
    y_ = block.a[1];
  }
  // Derivatives of dx and dy with respect to the next parameter.
  void put(double dx, double dy) {
    *x_++ = dx;
    *y_++ = dy;
  }
  // One parameter for each term that acts on dx, then as many that act on dy.
  void put_on_both(std::initializer_list<double> terms) {
    for (const double term : terms) put(term, 0);
    for (const double term : terms) put(0, term);
  }

 private:
  double* x_;
  double* y_;
};

// The correction itself: the sum of the derivatives times the parameters, taken in the same order
// as rows.
class Sum {
 public:
  explicit Sum(const APSet& set) : value_(set.values()) {}
  void put(double dx, double dy) {
    total_[0] += dx * *value_;
    total_[1] += dy * *value_++;
  }
  void put_on_both(std::initializer_list<double> terms) {
    for (const double term : terms) total_[0] += term * *value_++;
    for (const double term : terms) total_[1] += term * *value_++;
  }
  Pair total() const { return total_; }

 private:
  const double* value_;
  Pair total_{};
};

// The terms of the models, put one parameter after the other into rows or into a sum.

// dxp, dyp, dc
template <class Terms>
void put_inner_orientation(Terms& terms, const Vec3& p) {
  const auto [x, y, z] = p;
  terms.put(1, 0);
  terms.put(0, 1);
  terms.put(-x / z, -y / z);
}

// K1, K2, K3
template <class Terms>
void put_radial(Terms& terms, const Vec3& p) {
  const double x = p[0];
  const double y = p[1];
  const double r2 = x * x + y * y;
  const double r4 = r2 * r2;
  const double r6 = r4 * r2;
  terms.put(x * r2, y * r2);
  terms.put(x * r4, y * r4);
  terms.put(x * r6, y * r6);
}

// P1, P2
template <class Terms>
void put_decentering(Terms& terms, const Vec3& p) {
  const double x = p[0];
  const double y = p[1];
  const double xy2 = 2 * x * y;
  terms.put(3 * x * x + y * y, xy2);
  terms.put(xy2, x * x + 3 * y * y);
}

template <class Terms>
void put_gap(Terms& terms, const Vec3& point) {
  const double x = point[0];
  const double y = point[1];
  put_inner_orientation(terms, point);
  terms.put(-x, 0);
  terms.put(y, x);
  put_radial(terms, point);
  put_decentering(terms, point);
}

template <class Terms>
void put_australis(Terms& terms, const Vec3& point) {
  const double x = point[0];
  const double y = point[1];
  const double r2 = x * x + y * y;
  put_inner_orientation(terms, point);
  put_radial(terms, point);
  terms.put(r2 + 2 * x * x, 2 * x * y);
  terms.put(2 * x * y, r2 + 2 * y * y);
  terms.put(x, 0);
  terms.put(y, 0);
}

template <class Terms>
void put_in_plane(Terms& terms, const Vec3& point) {
  const double x = point[0];
  const double y = point[1];
  const double xy = x * y;
  for (const double dx : {x, y, xy, y * y, x * xy, xy * y, xy * xy}) terms.put(dx, 0);
  for (const double dy : {xy, x * x, x * xy, xy * y, xy * xy}) terms.put(0, dy);
}

template <class Terms>
void put_out_of_plane(Terms& terms, const Vec3& point) {
  const auto [x, y, z] = point;
  const double u = x / z;
  const double v = y / z;
  const double x2 = x * x;
  const double y2 = y * y;
  for (const double term : {x2 - y2, x2 * y2, x2 * x2 - y2 * y2}) terms.put(term * u, term * v);
}

template <class Terms>
void put_p12(Terms& terms, const Vec3& point, double grid_width) {
  const double x = point[0];
  const double y = point[1];
  const double k = 0.6666666666666666 * (grid_width * grid_width);
  const double X = x * x - k;
  const double Y = y * y - k;
  terms.put(x, -y);
  terms.put(y, x);
  terms.put(-2 * X, x * y);
  terms.put(x * y, -2 * Y);
  terms.put(Y, 0);
  terms.put(0, X);
  terms.put(x * Y, 0);
  terms.put(0, y * X);
  terms.put(y * X, 0);
  terms.put(0, x * Y);
  terms.put(X * Y, 0);
  terms.put(0, X * Y);
}

// Auxiliary polynomials of degree 2 to 4, orthogonal over the grid:
//   X = x^2 - b^2/2,  A = x^2 - 0.85 b^2,  U = x^2 (x^2 - 31/28 b^2) + 9/70 b^4
// and Y, B, V likewise.
template <class Terms>
void put_p44(Terms& terms, const Vec3& point, double grid_width) {
  constexpr double kFactor = -1.4285714285714286;  // -10/7
  const double x = point[0];
  const double y = point[1];
  const double xy = x * y;
  const double b2 = grid_width * grid_width;
  const double q = 1.1071428571428572 * b2;
  const double t = 0.12857142857142856 * (b2 * b2);
  const double X = x * x - b2 / 2;
  const double Y = y * y - b2 / 2;
  const double A = x * x - 0.85 * b2;
  const double B = y * y - 0.85 * b2;
  const double U = x * x * (x * x - q) + t;
  const double V = y * y * (y * y - q) + t;
  terms.put(x, -y);
  terms.put(y, x);
  terms.put(xy, kFactor * Y);
  terms.put(Y, 0);
  terms.put(0, X);
  terms.put(kFactor * X, xy);
  terms.put_on_both({x * A, y * X, x * Y, y * B});
  terms.put_on_both({U, xy * A, X * Y, xy * B, V});
  terms.put_on_both({y * U, x * Y * A, y * X * B, x * V});
  terms.put_on_both({Y * U, xy * A * B, X * V});
  terms.put_on_both({y * B * U, x * A * V});
  terms.put_on_both({U * V});
}

}  // namespace

APSetGAP::APSetGAP() : APSet(kGAP) {}

void APSetGAP::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_gap(rows, point);
}

Pair APSetGAP::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_gap(sum, point);
  return sum.total();
}

APSetAustralis::APSetAustralis() : APSet(kAustralis) {}

void APSetAustralis::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_australis(rows, point);
}

Pair APSetAustralis::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_australis(sum, point);
  return sum.total();
}

APSetIO::APSetIO() : APSet(kIO) {}

void APSetIO::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_inner_orientation(rows, point);
}

Pair APSetIO::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_inner_orientation(sum, point);
  return sum.total();
}

APSetRadial::APSetRadial() : APSet(kRadial) {}

void APSetRadial::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_radial(rows, point);
}

Pair APSetRadial::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_radial(sum, point);
  return sum.total();
}

APSetDecentering::APSetDecentering() : APSet(kDecentering) {}

void APSetDecentering::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_decentering(rows, point);
}

Pair APSetDecentering::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_decentering(sum, point);
  return sum.total();
}

APSetInPlane::APSetInPlane() : APSet(kInPlane) {}

void APSetInPlane::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_in_plane(rows, point);
}

Pair APSetInPlane::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_in_plane(sum, point);
  return sum.total();
}

APSetOutOfPlane::APSetOutOfPlane() : APSet(kOutOfPlane) {}

void APSetOutOfPlane::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_out_of_plane(rows, point);
}

Pair APSetOutOfPlane::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_out_of_plane(sum, point);
  return sum.total();
}

int APSetP::read(TokenReader& in) {
  if (!read_ids(in)) return -1;
  in.read(grid_width);
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

APSetP12::APSetP12() : APSetP(kP12) {}

void APSetP12::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_p12(rows, point, grid_width);
}

Pair APSetP12::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_p12(sum, point, grid_width);
  return sum.total();
}

APSetP44::APSetP44() : APSetP(kP44) {}

void APSetP44::get_derivs(const Vec3& point, DesignBlock& block) const {
  Rows rows(block, *this);
  put_p44(rows, point, grid_width);
}

Pair APSetP44::get_correction(const Vec3& point) const {
  Sum sum(*this);
  put_p44(sum, point, grid_width);
  return sum.total();
}

std::unique_ptr<APSet> make_ap_set(Keyword keyword) {
  switch (keyword) {
    case Keyword::gap:
      return std::make_unique<APSetGAP>();
    case Keyword::australis:
      return std::make_unique<APSetAustralis>();
    case Keyword::p12:
      return std::make_unique<APSetP12>();
    case Keyword::p44:
      return std::make_unique<APSetP44>();
    case Keyword::inner_or:
      return std::make_unique<APSetIO>();
    case Keyword::radial_dist:
      return std::make_unique<APSetRadial>();
    case Keyword::decentering_dist:
      return std::make_unique<APSetDecentering>();
    case Keyword::in_plane_dist:
      return std::make_unique<APSetInPlane>();
    case Keyword::out_of_plane_dist:
      return std::make_unique<APSetOutOfPlane>();
    default:
      return nullptr;
  }
}

}  // namespace vorn
