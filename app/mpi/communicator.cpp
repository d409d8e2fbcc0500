#include "app/mpi/communicator.h"

#include <mpi.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>
#include <vector>

namespace vorn::app {
namespace {

constexpr int kTag = 1;
// MPI counts in 32 bits.
constexpr std::size_t kMostBytes = std::size_t{1} << 28U;

// Takes no memory.
void end_all(const char* reason) {
  int rank = -1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  std::fprintf(stderr, "vorn-mpi: process %d: %s; the run is ended\n", rank, reason);
  MPI_Abort(MPI_COMM_WORLD, 1);
}

extern "C" void end_all_at_error(MPI_Comm* /*communicator*/, int* error, ...) {
  char text[MPI_MAX_ERROR_STRING] = {};
  int length = 0;
  MPI_Error_string(*error, text, &length);
  end_all(text);
}

// Does what stands between the messages of one operation. Others wait for the next one: whoever
// fails here cannot leave any more.
template <class Action>
auto do_or_end_all(Action action) {
  try {
    return action();
  } catch (const std::bad_alloc&) {
    end_all("there is not enough memory");
    throw;
  } catch (const std::exception& error) {
    end_all(error.what());
    throw;
  }
}

}  // namespace

Communicator::Communicator() {
  MPI_Errhandler handler{};
  MPI_Comm_create_errhandler(end_all_at_error, &handler);
  MPI_Comm_set_errhandler(MPI_COMM_WORLD, handler);
  MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
  MPI_Comm_size(MPI_COMM_WORLD, &size_);
}

// Every operation begins by finding out whether all are still there.
void Communicator::begin() {
  if (has_left_) return;
  int present = 1;
  MPI_Allreduce(MPI_IN_PLACE, &present, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
  if (present == 1) return;
  has_left_ = true;
  throw PartnerGone();
}

void Communicator::leave(bool success) {
  if (std::exchange(has_left_, true)) return;
  int present = success ? 1 : 0;
  MPI_Allreduce(MPI_IN_PLACE, &present, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
}

void Communicator::add_up(std::span<double> values) {
  const int count = static_cast<int>(values.size());
  std::vector<double> all(is_first() ? values.size() * static_cast<std::size_t>(size_) : 0);
  begin();
  MPI_Gather(values.data(), count, MPI_DOUBLE, all.data(), count, MPI_DOUBLE, 0, MPI_COMM_WORLD);
  for (std::size_t k = values.size(); k < all.size(); ++k) {
    values[k % values.size()] += all[k];
  }
  MPI_Bcast(values.data(), count, MPI_DOUBLE, 0, MPI_COMM_WORLD);
}

double Communicator::minimum(double value) {
  begin();
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_MIN, MPI_COMM_WORLD);
  return value;
}

void Communicator::broadcast(std::span<double> values) {
  begin();
  MPI_Bcast(values.data(), static_cast<int>(values.size()), MPI_DOUBLE, 0, MPI_COMM_WORLD);
}

void Communicator::send(int to, std::string_view bytes) const {
  const std::uint64_t size = bytes.size();
  MPI_Send(&size, 1, MPI_UINT64_T, to, kTag, MPI_COMM_WORLD);
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMostBytes))) {
    const int count = static_cast<int>(std::min(bytes.size(), kMostBytes));
    MPI_Send(bytes.data(), count, MPI_BYTE, to, kTag, MPI_COMM_WORLD);
  }
}

std::string Communicator::receive(int from) const {
  std::uint64_t size = 0;
  MPI_Recv(&size, 1, MPI_UINT64_T, from, kTag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  std::string bytes = do_or_end_all([&] { return std::string(size, '\0'); });
  for (std::size_t done = 0; done < bytes.size(); done += kMostBytes) {
    const int count = static_cast<int>(std::min(bytes.size() - done, kMostBytes));
    MPI_Recv(bytes.data() + done, count, MPI_BYTE, from, kTag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  }
  return bytes;
}

void Communicator::gather(std::string_view own, const Visit& visit) {
  begin();
  if (!is_first()) return send(0, own);
  do_or_end_all([&] { visit(0, own); });
  for (int from = 1; from < size_; ++from) {
    const std::string bytes = receive(from);
    do_or_end_all([&] { visit(from, bytes); });
  }
}

std::string Communicator::scatter(const Make& make) {
  begin();
  if (!is_first()) return receive(0);
  for (int to = 1; to < size_; ++to) send(to, do_or_end_all([&] { return make(to); }));
  return make(0);
}

}  // namespace vorn::app
