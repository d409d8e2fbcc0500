#include "base/cache_size.h"

#include <algorithm>

#ifdef __linux__
#include <unistd.h>
#endif

namespace vorn {
namespace {

constexpr std::size_t kUsual = std::size_t{1} << 19U;

std::size_t ask_system() {
#ifdef _SC_LEVEL2_CACHE_SIZE
  // 0 or -1 where it does not know.
  const long size = sysconf(_SC_LEVEL2_CACHE_SIZE);
  if (size > 0) return static_cast<std::size_t>(size);
#endif
  return kUsual;
}

}  // namespace

std::size_t second_level_cache() {
  // Neither the smallest cache of an old processor nor one that cores share.
  static const std::size_t size =
      std::clamp(ask_system(), std::size_t{1} << 18U, std::size_t{1} << 22U);
  return size;
}

}  // namespace vorn
