#pragma once

#include <memory>
#include <string>
#include <vector>

#include "text/text_writer.h"

namespace vorn {

// How the files of a run come to be.
enum class OutputMode {
  // They are opened under their names; what is there is truncated.
  in_place,
  // They are written beside their names and take them when all of them are complete: whoever reads
  // them finds either all of the old ones or all of the new ones.
  replaced,
  // There are none: what is written is discarded.
  discarded,
};

// A file that is not complete, and why.
struct OutputFailure {
  std::string path;
  std::string reason;
};

// The files that one run writes. At most one object of mode `replaced` lives at a time.
//
// In mode `replaced` a file has no name at all while it is written, where the system can do that,
// so that nothing is left behind however the process ends; elsewhere it has a name that begins with
// ".vorn-".
class OutputFiles {
 public:
  explicit OutputFiles(OutputMode mode = OutputMode::in_place);
  // Abandons what was not committed.
  ~OutputFiles();
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;

  // A file to write, valid as long as this object. One that cannot be opened discards what is
  // written and counts as a failure. `kept_as`, where given, is the name under which an abandoned
  // file stays.
  TextWriter& open(const std::string& path, const std::string& kept_as = {});
  [[nodiscard]] OutputMode mode() const { return mode_; }
  // Ends one of the files: nothing more will be written to it.
  void finish(TextWriter& file);
  // Ends all files and, when each is complete, replaces the old ones. False when one is not; in
  // mode `replaced` all old files are as they were then, unless it is the replacing that failed.
  [[nodiscard]] bool commit();
  // Ends all files. In mode `replaced` nothing is left of them but those that have a name to be
  // kept under.
  void abandon();
  // The files that were opened, in this order.
  std::vector<std::string> paths() const;
  // What has gone wrong, in the order in which it was found out.
  const std::vector<OutputFailure>& failures() const { return failures_; }

 private:
  struct File;

  void finish(File& file);
  void finish_all();
  void fail(const File& file, int error);
  void replace(File& file, const std::string& path);
  void close_all();

  OutputMode mode_;
  bool ended_ = false;
  std::vector<std::unique_ptr<File>> files_;
  std::vector<OutputFailure> failures_;
};

// For a signal handler that ends the process: removes the files that are being written, keeps those
// that have a name to be kept under, with `last_words` as their last line. False while old files
// are being replaced: the caller lets the process live, and is called again with `signal` when that
// is done. Calls nothing but what a signal handler may call.
[[nodiscard]] bool abandon_outputs_on_signal(int signal, const char* last_words);

}  // namespace vorn
