#include "app/silent_check.h"

#include "check/check.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

// Keeps what readers and projections print, which says the same as the findings.
class Silence {
 public:
  Silence() {
    standard_output().capture(&said_);
    error_output().capture(&said_);
  }
  ~Silence() {
    standard_output().capture(nullptr);
    error_output().capture(nullptr);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::string said_;
};

}  // namespace

bool check_silently(const std::string& control_file, FindingList& findings) {
  const Silence silence;
  const LSParams settings = ls_params();
  const std::string directory = current_directory();
  const bool read = check_project(control_file, findings);
  static_cast<void>(change_directory(directory));
  ls_params() = settings;
  return read;
}

}  // namespace vorn::app
