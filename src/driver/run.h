#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "driver/paths.h"
#include "driver/run_observer.h"
#include "lsq/adjustment_settings.h"
#include "report/run_ending.h"
#include "text/output_files.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;
class FindingListener;
struct Diagnosis;

// Wall-clock time that the stages of a run took [s].
struct RunTimes {
  double read = 0.0;
  double initialise = 0.0;
  double iterate = 0.0;
  double write = 0.0;
};

// What a run came to.
struct RunSummary {
  std::int32_t result = 0;  // 1 completed, 0 failed
  bool started = false;     // outputs were opened; otherwise the control file was not accepted
  bool stopped = false;     // by the observer
  double sigma0 = 0.0;      // a posteriori [m]
  std::int32_t redundancy = 0;
  std::int32_t iterations = 0;
  OutputNames files;
  std::vector<std::string> more_files;  // those that the request has written
  std::vector<OutputFailure> failures;  // files that are not complete
  RunEnding ending;                     // filled in where the request asks for it
  RunTimes times;
};

// Where a run that leads nowhere ends: an iteration of this number, or one that ends with a report
// longer than this, is the last one; 0 for no limit.
struct RunLimits {
  std::int32_t iterations = 0;
  std::uint64_t report_bytes = 0;
};
// No adjustment that converges needs as much.
inline constexpr RunLimits kRunLimits{1000, std::uint64_t{1} << 32U};

// What is to be run, and who listens.
struct RunRequest {
  std::string path;           // control file
  bool with_cameras = false;  // also write the camera result file
  AdjustmentSettings settings{};
  // Where given, is told what is wrong with the data files while they are read.
  FindingListener* findings = nullptr;
  // Where given, may change the project between reading and initialisation, and say so in the
  // report.
  std::function<void(BundleProject&, TextWriter& report)> prepare = nullptr;
  // Where given, is called when the data files have been read, whether or not that succeeded. False
  // ends the run.
  std::function<bool()> after_reading = nullptr;
  // `replaced`: a failed run leaves earlier results as they were, and its report under a name of
  // its own.
  OutputMode outputs = OutputMode::in_place;
  // Find out what a person should know about the ending; a run whose numbers are not finite fails.
  bool diagnose = false;
  // Where given, is told how the run goes on, and may end it.
  RunObserver* observer = nullptr;
  RunLimits limits{};
  // Where given, opens and writes further files of a completed adjustment, which replace earlier
  // ones together with the results. The normal equations of the project may be used up.
  std::function<void(BundleProject&, OutputFiles&)> write_more = nullptr;
  // Where given, sees the project after a completed adjustment. All files are written and closed by
  // then; it is not called when that failed.
  std::function<void(BundleProject&)> inspect = nullptr;
  // Where given, gets the project after a completed adjustment when everything else is done; like
  // `inspect`, it is not called when writing the files failed.
  std::function<void(std::unique_ptr<BundleProject>)> take = nullptr;
  // Where given, hears what is wrong with a network whose iterations failed or, after `inspect`,
  // one whose final normal equations are singular, or but for rounding, or whose iterations ended
  // before convergence. Looked into at the approximate values, in a damped run that completed at
  // the final ones. The normal equations of the project are used up by it.
  std::function<void(const Diagnosis&)> hear_diagnosis = nullptr;
};

// Runs the project of a control file from reading to the last report line. Throws std::bad_alloc
// when memory runs out.
RunSummary run_project(const RunRequest& request);
// What there is to say when it has thrown, on standard output. Takes no memory.
void print_out_of_memory();

}  // namespace vorn
