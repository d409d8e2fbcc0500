// Every test starts from the default least-squares parameters, which the whole process shares.

#include <gtest/gtest.h>

#include "lsq/ls_params.h"

namespace vorn::test {
namespace {

class DefaultSettings : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { ls_params() = LSParams(); }
};

[[maybe_unused]] const bool appended = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new DefaultSettings);
  return true;
}();

}  // namespace
}  // namespace vorn::test
