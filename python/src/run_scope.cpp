#include "run_scope.h"

#include <atomic>
#include <mutex>

#include "text/file_system.h"

namespace vorn::python {
namespace {

std::mutex& run_mutex() {
  static std::mutex mutex;
  return mutex;
}

std::atomic<std::thread::id>& running_thread() {
  static std::atomic<std::thread::id> id;
  return id;
}

}  // namespace

RunScope::RunScope() {
  if (running_thread() == std::this_thread::get_id()) {
    throw CallError("a callback cannot start another run");
  }
  run_mutex().lock();
  running_thread() = std::this_thread::get_id();
  directory_ = current_directory();
  standard_output().capture(&text_);
  error_output().capture(&text_);
}

RunScope::~RunScope() {
  standard_output().capture(nullptr);
  error_output().capture(nullptr);
  change_directory(directory_);
  running_thread() = std::thread::id();
  run_mutex().unlock();
}

const std::string& RunScope::messages() {
  standard_output().flush();
  error_output().flush();
  return text_;
}

}  // namespace vorn::python
