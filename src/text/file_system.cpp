#include "text/file_system.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>

#include "base/brought.h"

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vorn {
namespace {

constexpr std::size_t kDeviceLimit = std::size_t{1} << 26U;
constexpr int kFirstFreeDescriptor = 3;  // behind standard input, output and error stream

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

#ifdef _WIN32
using FileStatus = struct _stat64;
bool get_status(const std::string& path, FileStatus& status) {
  // The C library finds no directory whose name ends in a separator, unless it is a root.
  std::string name = path;
  while (name.size() > 1 && (name.back() == '/' || name.back() == '\\') &&
         name[name.size() - 2] != ':') {
    name.pop_back();
  }
  return _stat64(name.c_str(), &status) == 0;
}

// Volume and number of an existing file. False where the file system has none.
bool get_identity(const std::string& path, BY_HANDLE_FILE_INFORMATION& identity) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const HANDLE file = CreateFileA(path.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  const bool known = GetFileInformationByHandle(file, &identity) != 0;
  CloseHandle(file);
  return known && (identity.nFileIndexHigh != 0 || identity.nFileIndexLow != 0);
}
#else
using FileStatus = struct stat;
bool get_status(const std::string& path, FileStatus& status) {
  return ::stat(path.c_str(), &status) == 0;
}
#endif

#ifdef _WIN32
int duplicate(int descriptor) { return _dup(descriptor); }
void close_descriptor(int descriptor) { _close(descriptor); }
std::FILE* stream_of(int descriptor, const char* mode) { return _fdopen(descriptor, mode); }
#else
int duplicate(int descriptor) { return ::dup(descriptor); }
void close_descriptor(int descriptor) { ::close(descriptor); }
std::FILE* stream_of(int descriptor, const char* mode) { return ::fdopen(descriptor, mode); }
#endif

// The file under a descriptor that is none of the standard streams'; closes the given one.
std::FILE* moved_up(std::FILE* file, const char* mode) {
  int low[kFirstFreeDescriptor];
  int num_low = 0;
  int descriptor = descriptor_of(file);
  // Each duplicate gets the lowest free descriptor.
  while (descriptor >= 0 && descriptor < kFirstFreeDescriptor) {
    if (descriptor != descriptor_of(file)) low[num_low++] = descriptor;
    descriptor = duplicate(descriptor);
  }
  std::FILE* const moved = descriptor < 0 ? nullptr : stream_of(descriptor, mode);
  const int error = errno;
  if (moved == nullptr && descriptor >= 0) close_descriptor(descriptor);
  for (int i = 0; i < num_low; ++i) close_descriptor(low[i]);
  std::fclose(file);
  errno = error;
  return moved;
}

FileKind kind_of(const FileStatus& status) {
  if (S_ISREG(status.st_mode)) return FileKind::regular;
  if (S_ISDIR(status.st_mode)) return FileKind::directory;
  if (S_ISCHR(status.st_mode)) return FileKind::character_device;
  return FileKind::other;
}

}  // namespace

int descriptor_of(std::FILE* file) {
#ifdef _WIN32
  return _fileno(file);
#else
  return ::fileno(file);
#endif
}

FileKind file_kind(const std::string& path) {
  FileStatus status{};
  return get_status(path, status) ? kind_of(status) : FileKind::missing;
}

std::uint64_t file_size(const std::string& path) {
  FileStatus status{};
  const bool regular = get_status(path, status) && kind_of(status) == FileKind::regular;
  return regular ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::string current_directory() {
  std::string buffer(4096, '\0');
#ifdef _WIN32
  const char* found = _getcwd(buffer.data(), static_cast<int>(buffer.size()));
#else
  const char* found = ::getcwd(buffer.data(), buffer.size());
#endif
  return found == nullptr ? std::string() : std::string(found);
}

bool change_directory(const std::string& path) {
#ifdef _WIN32
  return _chdir(path.c_str()) == 0;
#else
  return ::chdir(path.c_str()) == 0;
#endif
}

bool same_file(const std::string& a, const std::string& b) {
#ifdef _WIN32
  BY_HANDLE_FILE_INFORMATION first{};
  BY_HANDLE_FILE_INFORMATION second{};
  if (get_identity(a, first) && get_identity(b, second)) {
    return first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
           first.nFileIndexHigh == second.nFileIndexHigh &&
           first.nFileIndexLow == second.nFileIndexLow;
  }
  char full_a[_MAX_PATH];
  char full_b[_MAX_PATH];
  return file_kind(a) != FileKind::missing && _fullpath(full_a, a.c_str(), _MAX_PATH) != nullptr &&
         _fullpath(full_b, b.c_str(), _MAX_PATH) != nullptr && _stricmp(full_a, full_b) == 0;
#else
  FileStatus first{};
  FileStatus second{};
  return get_status(a, first) && get_status(b, second) && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
#endif
}

std::vector<std::string> names_in_directory(const std::string& path) {
  std::vector<std::string> names;
  std::error_code error;
  std::filesystem::directory_iterator entry(path, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string canonical_path(const std::string& path) {
#ifdef _WIN32
  char full[_MAX_PATH];
  if (_fullpath(full, path.c_str(), _MAX_PATH) == nullptr) return path;
  _strlwr(full);
  return full;
#else
  const std::size_t name = path.rfind('/') + 1;  // 0 when there is no separator
  const std::string directory = name == 0 ? "." : path.substr(0, name);
  const std::unique_ptr<char, decltype(&std::free)> found(::realpath(directory.c_str(), nullptr),
                                                          &std::free);
  if (!found) return path;
  std::string text = found.get();
  if (text.back() != '/') text += '/';
  return text + path.substr(name);
#endif
}

bool is_link(const std::string& path) {
#ifdef _WIN32
  const DWORD attributes = GetFileAttributesA(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
#else
  FileStatus status{};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
#endif
}

std::FILE* open_file(const std::string& path, const char* mode) {
  std::FILE* const file = std::fopen(path.c_str(), mode);
  return file != nullptr && descriptor_of(file) < kFirstFreeDescriptor ? moved_up(file, mode)
                                                                       : file;
}

std::FILE* open_nameless_file([[maybe_unused]] const std::string& directory) {
#ifdef __linux__
  // It gets a name through the process's own list of open files.
  if (::access("/proc/self/fd", X_OK) != 0) return nullptr;
  const int descriptor =
      ::open(directory.empty() ? "." : directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
  if (descriptor < 0) return nullptr;
  std::FILE* const file = ::fdopen(descriptor, "w");
  if (file == nullptr) ::close(descriptor);
  return file != nullptr && descriptor < kFirstFreeDescriptor ? moved_up(file, "w") : file;
#else
  return nullptr;
#endif
}

bool sync_file(std::FILE* file) {
#ifdef _WIN32
  return _commit(_fileno(file)) == 0;
#else
  // A device or a file system may have nothing to synchronise.
  return ::fsync(::fileno(file)) == 0 || errno == EINVAL || errno == ENOTSUP;
#endif
}

bool replace_file(const std::string& from, const std::string& to) {
#ifdef _WIN32
  // rename() of this system replaces nothing.
  if (MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    return true;
  }
  errno = EACCES;
  return false;
#else
  return std::rename(from.c_str(), to.c_str()) == 0;
#endif
}

void copy_permissions([[maybe_unused]] const std::string& of, [[maybe_unused]] std::FILE* to) {
#ifndef _WIN32
  FileStatus status{};
  if (!get_status(of, status)) return;
  // Where the file system refuses, the file has those of any new one.
  static_cast<void>(::fchmod(::fileno(to), status.st_mode & 0777U));
#endif
}

std::string error_text(int number) { return std::generic_category().message(number); }

bool FileText::load(const std::string& path) {
  size_ = 0;
  FileStatus status{};
  if (!get_status(path, status)) return false;
  const FileKind kind = kind_of(status);
  if (kind != FileKind::regular && kind != FileKind::character_device) return false;
  const File file(open_file(path, "rb"));
  if (!file) return false;

  const bool regular = kind == FileKind::regular;
  const auto expected = static_cast<std::uint64_t>(regular ? status.st_size : 0);
  // One character more than expected, so that the end is met in the first round.
  std::uint64_t wanted = std::max<std::uint64_t>(expected + 1, 4096);
  if (wanted > SIZE_MAX / 2) return false;
  for (;;) {
    if (wanted > capacity_) grow(wanted);
    size_ += std::fread(data_.get() + size_, 1, capacity_ - size_, file.get());
    if (size_ < capacity_) return std::ferror(file.get()) == 0;
    if (!regular && size_ >= kDeviceLimit) return true;
    wanted = std::uint64_t{capacity_} * 2;
    if (wanted > SIZE_MAX / 2) return true;
  }
}

void FileText::Release::operator()(char* memory) const { std::free(memory); }

// The system may enlarge a large block where it stands: a text of gigabytes is not held twice.
void FileText::grow(std::uint64_t capacity) {
  if (capacity > SIZE_MAX / 2) throw std::bad_alloc();
  auto* const larger =
      static_cast<char*>(std::realloc(data_.get(), static_cast<std::size_t>(capacity)));
  if (larger == nullptr) throw std::bad_alloc();
  static_cast<void>(data_.release());
  data_.reset(larger);
  capacity_ = static_cast<std::size_t>(capacity);
}

char* FileText::make_room(std::size_t size) {
  const std::uint64_t wanted = std::uint64_t{size_} + size;
  if (wanted > capacity_) grow(std::max(wanted, capacity_ + std::uint64_t{capacity_} / 2));
  return data_.get() + size_;
}

bool FileText::load_data(const std::string& path, std::string& complaint) {
  complaint.clear();
  Unpacker* const unpacker = brought<Unpacker*>();
  if (unpacker == nullptr || !unpacker->takes(path)) return load(path);
  size_ = 0;
  if (file_kind(path) != FileKind::regular) return false;
  const File file(open_file(path, "rb"));
  if (!file) return false;
  complaint = unpacker->unpack(path, file.get(), *this);
  if (complaint.empty() && std::ferror(file.get()) != 0) complaint = "it cannot be read";
  if (!complaint.empty()) size_ = 0;
  return complaint.empty();
}

void use_unpacker(Unpacker* unpacker) { brought<Unpacker*>() = unpacker; }

}  // namespace vorn
