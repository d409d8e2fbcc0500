#include "text/kept_console.h"

#include <new>
#include <utility>

namespace vorn {

std::string KeptText::take() {
  writer_.capture(nullptr);
  if (writer_.error() != 0) throw std::bad_alloc();
  return std::move(text_);
}

}  // namespace vorn
