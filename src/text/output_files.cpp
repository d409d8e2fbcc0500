#include "text/output_files.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <set>

#include "text/file_system.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vorn {

// One file of a run.
struct OutputFiles::File {
  std::string path;
  std::string temporary;  // mode replaced: the name that it has before it takes its own
  std::string kept_as;    // the name under which it stays when the run is abandoned
  bool named = false;     // there is a file of the temporary's name
  bool finished = false;
  TextWriter writer;
};

namespace {

// What a signal handler has to know about a file.
struct Temporary {
  const char* path;
  const char* kept_as;  // null: it is removed
  int descriptor;       // -1 before it is open
  bool named;
};

enum class Phase { idle, writing, committing, ending };

constexpr std::size_t kMaxTemporaries = 64;
std::atomic<Phase> phase = Phase::idle;
std::atomic<int> deferred_signal = 0;
std::atomic<std::size_t> num_temporaries = 0;
Temporary temporaries[kMaxTemporaries];

#ifdef _WIN32
int process_number() { return _getpid(); }
#else
int process_number() { return ::getpid(); }
#endif

std::string directory_of(const std::string& path) {
#ifdef _WIN32
  return path.substr(0, path.find_last_of("/\\:") + 1);
#else
  return path.substr(0, path.rfind('/') + 1);
#endif
}

// A name beside the file, short whatever the file is called.
std::string temporary_name(const std::string& path, std::size_t number) {
  return directory_of(path) + ".vorn-" + std::to_string(process_number()) + '-' +
         std::to_string(number);
}

// Gives a file without a name one. Only system calls that a signal handler may use.
bool give_name([[maybe_unused]] int descriptor, [[maybe_unused]] const char* name) {
#ifdef __linux__
  char link[32] = "/proc/self/fd/";
  char digits[12];
  int count = 0;
  for (int rest = descriptor; count == 0 || rest > 0; rest /= 10) {
    digits[count++] = static_cast<char>('0' + rest % 10);
  }
  char* end = link + std::strlen(link);
  while (count > 0) *end++ = digits[--count];
  *end = '\0';
  ::unlink(name);  // what a process of the same number has left
  return ::linkat(AT_FDCWD, link, AT_FDCWD, name, AT_SYMLINK_FOLLOW) == 0;
#else
  return false;
#endif
}

// Makes new names durable.
void sync_directory([[maybe_unused]] const std::string& directory) {
#ifndef _WIN32
  const int descriptor = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return;
  // A file system that cannot do it keeps names by its own means.
  static_cast<void>(::fsync(descriptor));
  ::close(descriptor);
#endif
}

// What follows may be called in a signal handler.

void append_line(int descriptor, const char* line) {
  // There is nobody left to tell when it fails.
#ifdef _WIN32
  static_cast<void>(_write(descriptor, line, static_cast<unsigned>(std::strlen(line))));
#else
  [[maybe_unused]] const auto written = ::write(descriptor, line, std::strlen(line));
#endif
}

void end_temporary(const Temporary& file, const char* last_words) {
  if (file.descriptor < 0 && !file.named) return;
  bool named = file.named;
  if (file.kept_as != nullptr) {
    append_line(file.descriptor, last_words);
    named = named || give_name(file.descriptor, file.path);
  }
#ifdef _WIN32
  // An open file is neither renamed nor removed, and a name that is in use is not given.
  _close(file.descriptor);
  if (file.kept_as != nullptr) _unlink(file.kept_as);
#endif
  if (!named || (file.kept_as != nullptr && std::rename(file.path, file.kept_as) == 0)) return;
  std::remove(file.path);
}

}  // namespace

bool abandon_outputs_on_signal(int signal, const char* last_words) {
  Phase expected = Phase::writing;
  if (phase.compare_exchange_strong(expected, Phase::ending)) {
    const std::size_t count = num_temporaries;
    for (std::size_t i = 0; i < count; ++i) end_temporary(temporaries[i], last_words);
    return true;
  }
  if (expected == Phase::committing) deferred_signal = signal;
  return expected == Phase::idle;
}

OutputFiles::OutputFiles(OutputMode mode) : mode_(mode) {
  if (mode_ == OutputMode::replaced) phase = Phase::writing;
}

OutputFiles::~OutputFiles() {
  try {
    abandon();
  } catch (...) {
    // There was no memory to note a failure: the note is lost, no file is left.
    close_all();
  }
}

void OutputFiles::fail(const File& file, int error) {
  failures_.push_back({file.path, error_text(error)});
}

TextWriter& OutputFiles::open(const std::string& path, const std::string& kept_as) {
  File& file = *files_.emplace_back(std::make_unique<File>());
  file.path = path;
  file.kept_as = kept_as;
  if (mode_ == OutputMode::in_place) {
    if (!file.writer.open(path)) fail(file, file.writer.error());
    return file.writer;
  }
  if (mode_ == OutputMode::discarded) return file.writer;
  file.temporary = temporary_name(path, files_.size());
  // A signal that comes from here on finds the file.
  Temporary& known = temporaries[num_temporaries];
  known = {file.temporary.c_str(), kept_as.empty() ? nullptr : file.kept_as.c_str(), -1, false};
  if (num_temporaries + 1 < kMaxTemporaries) ++num_temporaries;
  if (!file.writer.open_nameless(directory_of(path))) {
    known.named = file.named = file.writer.open(file.temporary);
  }
  if (!file.writer.is_open()) {
    fail(file, file.writer.error());
    return file.writer;
  }
  known.descriptor = descriptor_of(file.writer.stream());
  copy_permissions(path, file.writer.stream());
  return file.writer;
}

void OutputFiles::finish(TextWriter& writer) {
  const auto file = std::find_if(files_.begin(), files_.end(),
                                 [&](const auto& entry) { return &entry->writer == &writer; });
  if (file != files_.end()) finish(**file);
}

void OutputFiles::finish(File& file) {
  if (file.finished || !file.writer.is_open()) return;
  file.finished = true;
  // A file that will take a name later stays open until then.
  if (mode_ == OutputMode::in_place) {
    file.writer.close();
  } else {
    file.writer.sync();
  }
  if (file.writer.error() != 0) fail(file, file.writer.error());
}

void OutputFiles::finish_all() {
  for (auto file = files_.rbegin(); file != files_.rend(); ++file) finish(**file);
}

// Gives a file the name `path`, whatever has had it.
void OutputFiles::replace(File& file, const std::string& path) {
  if (!file.writer.is_open()) return;
  errno = 0;
  if (!file.named) {
    file.named = give_name(descriptor_of(file.writer.stream()), file.temporary.c_str());
  }
  const int error = errno;
  file.writer.close();
  if (!file.named) {
    fail(file, error);
  } else if (replace_file(file.temporary, path)) {
    file.named = false;
  } else {
    fail(file, errno);
  }
}

std::vector<std::string> OutputFiles::paths() const {
  std::vector<std::string> paths;
  for (const auto& file : files_) paths.push_back(file->path);
  return paths;
}

void OutputFiles::close_all() {
  for (const auto& file : files_) {
    file->writer.close();
    if (file->named) std::remove(file->temporary.c_str());
    file->named = false;
  }
  ended_ = true;
  if (mode_ == OutputMode::in_place) return;
  num_temporaries = 0;
  phase = Phase::idle;
  const int signal = deferred_signal.exchange(0);
  if (signal != 0) std::raise(signal);
}

bool OutputFiles::commit() {
  finish_all();
  if (mode_ == OutputMode::replaced) {
    if (!failures_.empty()) return false;
    phase = Phase::committing;
    for (const auto& file : files_) {
      if (failures_.empty()) replace(*file, file->path);
    }
    std::set<std::string> directories;
    for (const auto& file : files_) directories.insert(directory_of(file->path));
    for (const std::string& directory : directories) sync_directory(directory);
  }
  close_all();
  return failures_.empty();
}

void OutputFiles::abandon() {
  if (ended_) return;
  finish_all();
  if (mode_ == OutputMode::replaced) phase = Phase::committing;
  for (const auto& file : files_) {
    if (mode_ == OutputMode::replaced && !file->kept_as.empty()) replace(*file, file->kept_as);
  }
  close_all();
}

}  // namespace vorn
