#include "text/text_writer.h"

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "text/file_system.h"

namespace vorn {
namespace {

constexpr std::size_t kCapacity = std::size_t{1} << 16U;
constexpr std::size_t kIntegerLength = 24;

// Line ends of text with carriage returns pass.
bool is_control(char c) {
  const auto code = static_cast<unsigned char>(c);
  return (code < 0x20U && c != '\n' && c != '\t' && c != '\r') || code == 0x7fU;
}

// What stands for the process's streams on this thread.
thread_local Console redirected;

}  // namespace

TextWriter::TextWriter(std::FILE* stream) : stream_(stream) {}

TextWriter::~TextWriter() { close(); }

bool TextWriter::open(const std::string& path) {
  close();
  error_ = 0;
  written_ = 0;
  // Opening a pipe would wait for its reader.
  if (file_kind(path) == FileKind::other) {
    error_ = EINVAL;
    return false;
  }
  return take(open_file(path, "w"));
}

bool TextWriter::open_nameless(const std::string& directory) {
  close();
  error_ = 0;
  written_ = 0;
  return take(open_nameless_file(directory));
}

bool TextWriter::take(std::FILE* stream) {
  stream_ = stream;
  check(stream_ != nullptr);
  if (stream_ == nullptr) return false;
  owned_ = true;
  // This class buffers; the C library need not do it again.
  std::setvbuf(stream_, nullptr, _IONBF, 0);
  return true;
}

void TextWriter::check(bool done) {
  if (!done && error_ == 0) error_ = errno != 0 ? errno : EIO;
}

void TextWriter::write(const char* text, std::size_t size) {
  written_ += size;
  if (captured_ != nullptr) {
    captured_->append(text, size);
    return;
  }
  // Behind a gap nothing is of use.
  if (size == 0 || stream_ == nullptr || (owned_ && error_ != 0)) return;
  errno = 0;
  check(std::fwrite(text, 1, size, stream_) == size);
}

void TextWriter::write_escaped(const char* text, std::size_t size) {
  const char* const end = text + size;
  const char* plain = text;  // start of what can be written as it is
  for (; text != end; ++text) {
    if (!is_control(*text)) continue;
    write(plain, static_cast<std::size_t>(text - plain));
    constexpr char kDigits[] = "0123456789abcdef";
    const auto code = static_cast<unsigned char>(*text);
    const char escape[] = {'\\', 'x', kDigits[code / 16U], kDigits[code % 16U]};
    write(escape, sizeof escape);
    plain = text + 1;
  }
  write(plain, static_cast<std::size_t>(end - plain));
}

void TextWriter::drain() {
  if (escapes_) {
    write_escaped(buffer_.get(), used_);
  } else {
    write(buffer_.get(), used_);
  }
  used_ = 0;
}

void TextWriter::capture(std::string* text) {
  try {
    drain();
  } catch (const std::bad_alloc&) {
    // A capture can end in a destructor.
    used_ = 0;
    errno = ENOMEM;
    check(false);
  }
  captured_ = text;
}

void TextWriter::flush() {
  drain();
  errno = 0;
  if (stream_ != nullptr && captured_ == nullptr) check(std::fflush(stream_) == 0);
}

void TextWriter::sync() {
  flush();
  errno = 0;
  if (stream_ != nullptr && error_ == 0) check(sync_file(stream_));
}

void TextWriter::write_through(std::string_view text) {
  drain();
  write(text.data(), text.size());
}

void TextWriter::close() {
  flush();
  errno = 0;
  if (owned_) check(std::fclose(std::exchange(stream_, nullptr)) == 0);
  owned_ = false;
}

char* TextWriter::reserve(std::size_t count) {
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(kCapacity);
  if (used_ + count > kCapacity) drain();
  return buffer_.get() + used_;
}

TextWriter& TextWriter::operator<<(std::string_view text) {
  if (discards()) return *this;
  while (!text.empty()) {
    const std::size_t count = text.size() < kCapacity ? text.size() : kCapacity;
    std::memcpy(reserve(count), text.data(), count);
    used_ += count;
    text.remove_prefix(count);
  }
  return *this;
}

TextWriter& TextWriter::operator<<(char c) {
  if (discards()) return *this;
  *reserve(1) = c;
  ++used_;
  return *this;
}

TextWriter& TextWriter::operator<<(const FormattedNumber& number) {
  if (discards()) return *this;
  char* const out = reserve(static_cast<std::size_t>(max_length(number.format)));
  used_ += static_cast<std::size_t>(write_number(out, number.value, number.format) - out);
  return *this;
}

TextWriter& TextWriter::operator<<(const PaddedText& padded) {
  const auto width = static_cast<std::size_t>(padded.width);
  const std::size_t pad = padded.text.size() < width ? width - padded.text.size() : 0;
  if (padded.left) *this << padded.text;
  for (std::size_t i = 0; i < pad; ++i) *this << ' ';
  if (!padded.left) *this << padded.text;
  return *this;
}

TextWriter& TextWriter::operator<<(std::int32_t value) { return *this << std::int64_t{value}; }
TextWriter& TextWriter::operator<<(std::uint32_t value) { return *this << std::uint64_t{value}; }

TextWriter& TextWriter::operator<<(std::int64_t value) {
  if (discards()) return *this;
  char* const out = reserve(kIntegerLength);
  used_ += static_cast<std::size_t>(std::to_chars(out, out + kIntegerLength, value).ptr - out);
  return *this;
}

TextWriter& TextWriter::operator<<(std::uint64_t value) {
  if (discards()) return *this;
  char* const out = reserve(kIntegerLength);
  used_ += static_cast<std::size_t>(std::to_chars(out, out + kIntegerLength, value).ptr - out);
  return *this;
}

TextWriter& TextWriter::integer(std::int64_t value, int width) {
  char text[kIntegerLength];
  const char* const end = std::to_chars(text, text + kIntegerLength, value).ptr;
  return *this << right_aligned({text, static_cast<std::size_t>(end - text)}, width);
}

TextWriter& standard_output() {
  static TextWriter writer(stdout);
  return redirected.standard != nullptr ? *redirected.standard : writer;
}

TextWriter& error_output() {
  static TextWriter writer(stderr);
  return redirected.error != nullptr ? *redirected.error : writer;
}

Console redirect_console(Console console) { return std::exchange(redirected, console); }

void flush_console() {
  standard_output().flush();
  error_output().flush();
}

}  // namespace vorn
