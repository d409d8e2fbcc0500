#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

// What a path names. Paths are in the encoding of the C library (on Windows the ANSI code page).
enum class FileKind { missing, regular, directory, character_device, other };
FileKind file_kind(const std::string& path);

// The process's current directory; empty when it cannot be determined.
std::string current_directory();
// False when the directory cannot be made the current one.
bool change_directory(const std::string& path);
// Whether both paths name one existing file.
bool same_file(const std::string& a, const std::string& b);

// Names in a directory; none when it cannot be read.
std::vector<std::string> names_in_directory(const std::string& path);

// The whole content of a file.
class FileText {
 public:
  // Reads the file. False when it cannot be opened or read or is no file: directories, pipes and
  // sockets are none. A character device is read up to a limit, so that an endless one ends.
  bool load(const std::string& path);
  std::string_view view() const { return {data_.get(), size_}; }

 private:
  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace vorn
