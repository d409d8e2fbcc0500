#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include "geometry/image_geometry.h"
#include "text/token_reader.h"

namespace vorn::test {

// A geometry read from a record without its type keyword, ready to project.
template <class Geometry>
std::unique_ptr<Geometry> from_record(std::string_view record) {
  auto geometry = std::make_unique<Geometry>();
  TokenReader in(record);
  EXPECT_EQ(geometry->read(in), 1) << record;
  geometry->update();
  return geometry;
}

}  // namespace vorn::test
