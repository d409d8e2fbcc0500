// Memory that runs out in one process between the messages of an operation: all processes end, and
// none waits for another. scripts/check-mpi starts two of this program, with the operation's name.

#include <mpi.h>

#include <cstdio>
#include <new>
#include <string>

#include "app/mpi/communicator.h"

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const std::string operation = argc > 1 ? argv[1] : "";
  // More than is sent before somebody receives it.
  const std::string large(std::size_t{1} << 24U, 'x');
  vorn::app::Communicator processes;
  try {
    if (operation == "gather") {
      processes.gather(large, [](int, std::string_view) { throw std::bad_alloc(); });
    } else if (operation == "scatter") {
      processes.scatter([](int) -> std::string { throw std::bad_alloc(); });
    }
  } catch (const std::bad_alloc&) {
    processes.leave(false);
  }
  std::puts("went on");
  MPI_Finalize();
  return 0;
}
