#include "app/exchange/source.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace vorn::exchange {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

bool is_blank(char c) { return kBlanks.find(c) != std::string_view::npos; }

// The beginning of a line for a message; bytes that could upset a terminal become '?'.
std::string quoted(std::string_view text) {
  constexpr std::size_t kShown = 40;
  const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
  std::string shown(line.substr(0, kShown));
  std::replace_if(
      shown.begin(), shown.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
  return "'" + shown + (shown.size() < text.size() ? "...'" : "'");
}

}  // namespace

Source::Source(const std::string& path, Kind kind) : name_(path), kind_(kind) {
  const FileKind found = file_kind(path);
  if (found == FileKind::missing) throw ExchangeError(path + ": no such file");
  if (found == FileKind::directory) throw ExchangeError(path + ": is a directory, not a file");
  if (!file_.load(path)) throw ExchangeError(path + ": cannot be read");
  content_ = file_.view();
  if (kind == Kind::text && content_.starts_with("\xEF\xBB\xBF")) content_.remove_prefix(3);
}

Source::Source(std::string name, std::string_view content, Kind kind)
    : name_(std::move(name)), kind_(kind), content_(content) {}

void Source::fail(std::size_t offset, const std::string& message) const {
  if (kind_ == Kind::binary) {
    throw ExchangeError(name_ + ": byte " + std::to_string(offset) + ": " + message);
  }
  const auto before = content_.substr(0, offset);
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  throw ExchangeError(name_ + ":" + std::to_string(line) + ": " + message);
}

bool Lines::next(std::string_view& line) {
  if (rest_.empty()) return false;
  const std::size_t end = rest_.find('\n');
  line = rest_.substr(0, end);
  rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return true;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return text.substr(0, 0);
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool Fields::at_end() {
  while (pos_ != end_ && is_blank(*pos_)) ++pos_;
  return pos_ == end_;
}

std::string_view Fields::word(std::string_view what) {
  if (at_end()) fail("ends where " + std::string(what) + " should stand");
  const char* const begin = pos_;
  while (pos_ != end_ && !is_blank(*pos_)) ++pos_;
  return {begin, static_cast<std::size_t>(pos_ - begin)};
}

double Fields::real(std::string_view what) {
  const std::string_view text = word(what);
  const char* begin = text.data();
  const char* const end = begin + text.size();
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') ++begin;
  double value = 0.0;
  const auto [stop, error] = std::from_chars(begin, end, value);
  // Numbers too small for any double are 0.
  const bool underflow = error == std::errc::result_out_of_range &&
                         text.find_last_of('-') != std::string_view::npos &&
                         text.find_last_of('-') > 0;
  if (stop != end || (error != std::errc() && !underflow) || !std::isfinite(value)) {
    refuse(text, what);
  }
  return underflow ? 0.0 : value;
}

std::string_view Fields::rest() {
  const std::string_view text = trimmed({pos_, static_cast<std::size_t>(end_ - pos_)});
  pos_ = end_;
  return text;
}

void Fields::expect_end() {
  if (!at_end()) fail("more than expected: " + quoted(rest()));
}

void Fields::refuse(std::string_view text, std::string_view what) const {
  source_->fail(text.data(), quoted(text) + " is no valid " + std::string(what));
}

double Bytes::real(std::string_view what) {
  const std::size_t start = offset_;
  const auto value = std::bit_cast<double>(unsigned_number(8, what));
  if (!std::isfinite(value)) source_.fail(start, std::string(what) + " is not finite");
  return value;
}

std::string_view Bytes::text(std::string_view what) {
  const std::string_view rest = source_.content().substr(offset_);
  const std::size_t length = rest.find('\0');
  if (length == std::string_view::npos) fail("the file ends inside " + std::string(what));
  offset_ += length + 1;
  return rest.substr(0, length);
}

std::size_t Bytes::count(std::size_t size, std::string_view what) {
  const std::size_t start = offset_;
  const std::uint64_t number = uint64(what);
  if (number > left() / size) {
    source_.fail(start, std::to_string(number) + " is a " + std::string(what) +
                            " that the file is too short for");
  }
  return static_cast<std::size_t>(number);
}

void Bytes::expect_end() const {
  if (left() > 0) fail(std::to_string(left()) + " bytes more than the counts say");
}

const char* Bytes::take(std::size_t size, std::string_view what) {
  if (left() < size) fail("the file ends inside " + std::string(what));
  const char* const begin = source_.content().data() + offset_;
  offset_ += size;
  return begin;
}

std::uint64_t Bytes::unsigned_number(std::size_t size, std::string_view what) {
  const char* const begin = take(size, what);
  std::uint64_t value = 0;
  for (std::size_t i = size; i > 0; --i) {
    value = value << 8U | static_cast<unsigned char>(begin[i - 1]);
  }
  return value;
}

void require_positive(double value, const char* what) {
  if (value > 0.0 && std::isfinite(value)) return;
  throw ExchangeError(std::string(what) + " must be positive");
}

std::string as_word(std::string_view text) {
  std::string word(text);
  std::replace_if(word.begin(), word.end(), is_blank, '_');
  return word == "-1" || word == "stop-dep" ? "_" + word : word;
}

}  // namespace vorn::exchange
