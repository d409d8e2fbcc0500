#pragma once

#include <cstddef>

namespace vorn::app {

// Whether the command was built with a runtime for threads (OpenMP).
bool has_threads();
// The cores that this process may use; 1 without threads.
std::size_t available_cores();
// More threads than any machine has use for.
inline constexpr std::size_t kMostThreads = 1024;
// From now on adjustments are worked at by so many threads, the caller among them, or by as many as
// the system starts where memory or a limit allows no more. More than one needs `has_threads`.
void use_threads(std::size_t count);
// As many as there are cores, where nobody has asked for a number.
void use_all_cores_by_default();

}  // namespace vorn::app
