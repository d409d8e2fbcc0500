#include "driver/run_permit.h"

#include <atomic>

namespace vorn {
namespace {

std::atomic_flag under_way;

}  // namespace

RunPermit::RunPermit() : granted_(!under_way.test_and_set(std::memory_order_acquire)) {}

RunPermit::~RunPermit() {
  if (granted_) under_way.clear(std::memory_order_release);
}

}  // namespace vorn
