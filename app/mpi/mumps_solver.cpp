#include "app/mpi/mumps_solver.h"

#include <dmumps_c.h>
#include <mpi.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <string>

namespace vorn::app {
namespace {

enum Job : MUMPS_INT { kBegin = -1, kAnalyse = 1, kFactorise = 2, kSubstitute = 3 };

// MUMPS counts its controls and answers from 1.
constexpr std::size_t control(int k) { return static_cast<std::size_t>(k - 1); }
constexpr std::size_t kStatus = control(1);
constexpr std::size_t kNegativePivots = control(12);

// What MUMPS answers.
constexpr MUMPS_INT kWorkspaceTooSmall[] = {-8, -9, -11, -12, -14, -15, -17, -20};
constexpr MUMPS_INT kSingular = -10;
constexpr MUMPS_INT kRootNotPositive = -40;

}  // namespace

struct MumpsSolver::Mumps {
  void run(Job job) {
    data.job = job;
    dmumps_c(&data);
  }
  void analyse(std::int32_t size, bool first);
  [[nodiscard]] bool factorise();
  void substitute(std::span<double> rhs);
  [[noreturn]] void fail() const;

  DMUMPS_STRUC_C data{};
  bool is_first = false;
  std::vector<MUMPS_INT> rows;
  std::vector<MUMPS_INT> columns;
  std::vector<double> values;
};

// There is no counterpart that frees what MUMPS holds: all processes would have to wait for one
// another there, and one that fails cannot. The program ends soon after.
void MumpsSolver::Mumps::analyse(std::int32_t size, bool first) {
  is_first = first;
  constexpr MUMPS_INT kSymmetricPositive = 1;
  data.par = 1;  // the first process works as well
  data.sym = kSymmetricPositive;
  data.comm_fortran = static_cast<MUMPS_INT>(MPI_Comm_c2f(MPI_COMM_WORLD));
  run(kBegin);
  // No messages: failures are told by `fail`.
  for (const int stream : {1, 2, 3}) data.icntl[control(stream)] = -1;
  data.icntl[control(4)] = 0;
  data.icntl[control(18)] = 3;   // elements are where they were formed
  data.icntl[control(14)] = 30;  // per cent of workspace beyond what the analysis estimates
  data.n = size;
  data.nnz_loc = static_cast<MUMPS_INT8>(rows.size());
  data.irn_loc = rows.data();
  data.jcn_loc = columns.data();
  data.a_loc = values.data();
  run(kAnalyse);
  if (data.infog[kStatus] < 0) fail();
}

void MumpsSolver::Mumps::fail() const {
  throw std::runtime_error("MUMPS failed with code " + std::to_string(data.infog[kStatus]) + " (" +
                           std::to_string(data.infog[control(2)]) + ")");
}

// False when S is not positive definite.
bool MumpsSolver::Mumps::factorise() {
  constexpr MUMPS_INT kMostExtra = 2000;  // per cent
  while (true) {
    run(kFactorise);
    const MUMPS_INT status = data.infog[kStatus];
    if (status == kSingular || status == kRootNotPositive) return false;
    if (status >= 0) return data.infog[kNegativePivots] == 0;
    MUMPS_INT& extra = data.icntl[control(14)];
    const auto* const end = std::end(kWorkspaceTooSmall);
    if (std::find(std::begin(kWorkspaceTooSmall), end, status) == end || extra > kMostExtra) fail();
    extra *= 2;
  }
}

// `rhs` counts in the first process, and there it becomes the solution.
void MumpsSolver::Mumps::substitute(std::span<double> rhs) {
  if (is_first) {
    data.rhs = rhs.data();
    data.nrhs = 1;
    data.lrhs = data.n;
  }
  run(kSubstitute);
  if (data.infog[kStatus] < 0) fail();
}

// ---- the solver --------------------------------------------------------------------------------

MumpsSolver::MumpsSolver(Communicator& processes, Number number)
    : processes_(processes), number_(std::move(number)) {}

MumpsSolver::~MumpsSolver() = default;

// The blocks of each point meet, and in the first process, which has the observations of all other
// unknowns, each block meets itself.
MumpsSolver::BlockPairs MumpsSolver::pairs_that_meet(const NormalMatrix& n) const {
  const auto num_blocks = static_cast<std::size_t>(n.num_blocks());
  std::vector<std::vector<std::int32_t>> points_of(num_blocks);
  for (std::int32_t point = 0; point < n.num_points(); ++point) {
    for (const NormalMatrix::PointBlock& at : n.blocks_of(point)) {
      points_of[static_cast<std::size_t>(at.block)].push_back(point);
    }
  }
  BlockPairs pairs;
  std::vector<std::int32_t> seen_by(num_blocks, -1);
  for (std::int32_t a = 0; a < n.num_blocks(); ++a) {
    const auto meet = [&](std::int32_t b) {
      if (b < a || seen_by[static_cast<std::size_t>(b)] == a) return;
      seen_by[static_cast<std::size_t>(b)] = a;
      pairs.emplace_back(a, b);
    };
    if (processes_.is_first()) meet(a);
    for (const std::int32_t point : points_of[static_cast<std::size_t>(a)]) {
      for (const NormalMatrix::PointBlock& at : n.blocks_of(point)) meet(at.block);
    }
  }
  return pairs;
}

// Calls visit(row, column) for all elements of the lower triangle that can differ from zero.
template <class Visit>
void MumpsSolver::for_each_element(Visit visit) const {
  const NormalMatrix& n = elimination_->matrix();
  const ReducedMatrix& reduced = elimination_->reduced();
  for (const auto& [a, b] : pairs_) {
    for (std::int32_t r = 0; r < n.block_width(b); ++r) {
      const std::int32_t end = a == b ? r + 1 : n.block_width(a);
      for (std::int32_t c = 0; c < end; ++c) visit(reduced.start(b) + r, reduced.start(a) + c);
    }
  }
}

void MumpsSolver::prepare(const NormalMatrix& n) {
  elimination_ = std::make_unique<PointElimination>(n);
  if (!elimination_->set_reduced_structure()) throw std::bad_alloc();
  pairs_ = pairs_that_meet(n);
  mumps_ = std::make_unique<Mumps>();
  for_each_element([this](std::int32_t row, std::int32_t column) {
    mumps_->rows.push_back(row + 1);
    mumps_->columns.push_back(column + 1);
  });
  mumps_->values.resize(mumps_->rows.size());
  processes_.wait_for_all();
  mumps_->analyse(n.size() - n.num_point_unknowns(), processes_.is_first());
}

// This process's part of S, for MUMPS. False when it is not finite.
bool MumpsSolver::take_elements() {
  const TileMatrix& tiles = elimination_->reduced().tiles;
  std::size_t next = 0;
  bool finite = true;
  for_each_element([&](std::int32_t row, std::int32_t column) {
    const double value = tiles.at(row, column);
    finite = finite && std::isfinite(value);
    mumps_->values[next++] = value;
  });
  return finite;
}

int MumpsSolver::try_solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) {
  if (elimination_ == nullptr || &elimination_->matrix() != &n) prepare(n);
  std::vector<double> rhs;
  const std::int32_t failed = elimination_->reduce(b, x, rhs);
  constexpr double kNone = std::numeric_limits<double>::infinity();
  const double first_failed = processes_.minimum(failed == 0 ? kNone : number_(failed - 1));
  if (first_failed != kNone) return static_cast<int>(first_failed) + 1;

  const std::int32_t num_point_unknowns = n.num_point_unknowns();
  rhs.resize(static_cast<std::size_t>(n.size() - num_point_unknowns));
  processes_.add_up(rhs);
  if (processes_.minimum(take_elements() ? 1.0 : 0.0) == 0.0 || !mumps_->factorise()) return -1;
  mumps_->substitute(rhs);
  processes_.broadcast(rhs);
  // The blocks of S stand in the order of the unknowns.
  std::copy(rhs.begin(), rhs.end(), x.data() + num_point_unknowns);
  elimination_->complete(x);
  p = elimination_->diagonal();
  std::fill(p.data() + num_point_unknowns, p.data() + n.size(), kNone);
  return 0;
}

int MumpsSolver::solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) {
  const int code = try_solve(n, b, x, p);
  if (code > 0) standard_output() << "ERROR: Cholesky decomposition failed.\n";
  if (code < 0) {
    standard_output() << "ERROR: The reduced normal equations are not positive definite.\n";
  }
  return code;
}

int MumpsSolver::invert(const NormalMatrix& /*n*/, Matrix& /*q*/, const Vector& /*p*/) {
  standard_output() << "ERROR: No process has the inverse.\n";
  return -2;
}

void MumpsSolver::write_matrix(TextWriter& /*out*/, const NormalMatrix& /*n*/) const {}

}  // namespace vorn::app
