#pragma once

#include <string>

#include "app/exchange/source.h"

namespace vorn::exchange {

// The row of a table of formats that has this name. Throws ExchangeError that lists all names.
template <class Formats>
const auto& format_named(const Formats& formats, const std::string& name) {
  std::string known;
  for (const auto& format : formats) {
    if (name == format.name) return format;
    known += std::string(known.empty() ? "" : ", ") + format.name;
  }
  throw ExchangeError("unknown format '" + name + "'; there are " + known);
}

}  // namespace vorn::exchange
