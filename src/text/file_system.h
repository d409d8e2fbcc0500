#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

// What a path names. Paths are in the encoding of the C library (on Windows the ANSI code page).
enum class FileKind { missing, regular, directory, character_device, other };
FileKind file_kind(const std::string& path);
// In bytes; 0 for what is missing or no regular file.
std::uint64_t file_size(const std::string& path);

// The process's current directory; empty when it cannot be determined.
std::string current_directory();
// False when the directory cannot be made the current one.
bool change_directory(const std::string& path);
// Whether both paths name one existing file.
bool same_file(const std::string& a, const std::string& b);

// Names in a directory; none when it cannot be read.
std::vector<std::string> names_in_directory(const std::string& path);
// The one way of writing the path of a file in an existing directory, whether or not the file
// exists or is a link: equal texts mean equal files. Elsewhere the path as it is.
std::string canonical_path(const std::string& path);
// Whether the name itself is a symbolic link, wherever it leads.
bool is_link(const std::string& path);

// fopen, but never on the descriptors of the three standard streams: where a process was started
// without them, messages must not land in a file. Null with errno set when the file does not open.
std::FILE* open_file(const std::string& path, const char* mode);
// A file for writing that has no name yet, in a directory ("" for the current one). Null where the
// system has no such files.
std::FILE* open_nameless_file(const std::string& directory);
int descriptor_of(std::FILE* file);
// Writes what the system still holds of an open file to its device. False with errno set.
[[nodiscard]] bool sync_file(std::FILE* file);
// Gives `from` the name `to`, whose old file is gone then; nothing in between is ever seen. False
// with errno set, and both as they were.
[[nodiscard]] bool replace_file(const std::string& from, const std::string& to);
// Gives the file that is written the permissions of the one that it will replace.
void copy_permissions(const std::string& of, std::FILE* to);
// What an error number means, in words.
std::string error_text(int number);

// The whole content of a file.
class FileText {
 public:
  // Reads the file. False when it cannot be opened or read or is no file: directories, pipes and
  // sockets are none. A character device is read up to a limit, so that an endless one ends.
  [[nodiscard]] bool load(const std::string& path);
  // The same for a data file, which may be one for an unpacker. What it has to say of a file that
  // it cannot unpack stands in `complaint`.
  [[nodiscard]] bool load_data(const std::string& path, std::string& complaint);
  std::string_view view() const { return {data_.get(), size_}; }

  // For an unpacker: room for `size` more bytes behind the text; how many of them belong to it now.
  // std::bad_alloc where there is no memory.
  char* make_room(std::size_t size);
  void add(std::size_t size) { size_ += size; }

 private:
  struct Release {
    void operator()(char* memory) const;
  };
  void grow(std::uint64_t capacity);

  std::unique_ptr<char[], Release> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// Unpacks data files while they are read. The library has none; a program may bring one.
class Unpacker {
 public:
  Unpacker() = default;
  virtual ~Unpacker() = default;
  Unpacker(const Unpacker&) = delete;
  Unpacker& operator=(const Unpacker&) = delete;

  // Whether it is in charge of files of this name.
  virtual bool takes(std::string_view path) const = 0;
  // Appends the text of an open file; returns what is wrong with it, nothing for success.
  virtual std::string unpack(std::string_view path, std::FILE* file, FileText& text) = 0;
};
// From now on this one is asked; null stands for nobody. It outlives what it is asked for.
void use_unpacker(Unpacker* unpacker);

}  // namespace vorn
