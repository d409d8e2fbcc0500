#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "text/text_writer.h"

namespace vorn {

enum class Severity : std::uint8_t { error, warning, note };

// What a finding is about, in the order in which a project is looked through: the texts, the names
// in them, their values, what the network of rays can determine, and what a run would do.
enum class FindingCode : std::uint8_t {
  file_missing,
  encoding,
  keyword_unknown,
  number_expected,
  value_missing,
  end_missing,
  trailing_text,
  duplicate,
  unknown_reference,
  unused,
  value_range,
  unit_suspect,
  axes_suspect,
  rotation_suspect,
  gross_start,
  rays,
  undetermined,
  datum,
  islands,
  geometry_weak,
  output_clash,
  empty_project,
  memory,
};

// "file-missing" and so on; each code has one severity.
std::string_view name_of(FindingCode code);
std::string_view name_of(Severity severity);
Severity severity_of(FindingCode code);

// The object that a finding is about. What does not apply is empty.
struct FindingObject {
  std::string type;       // "image-point", "camera", ...
  std::string id;         // its identifier
  std::string image;      // of an image point
  std::string parameter;  // the value meant, by its name
};

// Something wrong, doubtful or worth knowing about a project. All texts are UTF-8 without control
// characters.
struct Finding {
  FindingCode code;
  std::string file;         // as the control file names it
  std::int32_t line = 0;    // of the word meant, from 1; 0 where no word is meant
  std::int32_t column = 0;  // likewise, in characters
  FindingObject object;
  std::string message;
  std::string help;  // what usually helps; may be empty

  Severity severity() const { return severity_of(code); }
};

// Line and column of a word of a file.
struct Place {
  std::string file;
  std::int32_t line = 0;
  std::int32_t column = 0;
};

// Which word of an object a place is that of: its identifier, or another one worth pointing at.
namespace place_of {
inline constexpr std::size_t kIdentifier = 0;
inline constexpr std::size_t kMeasurements = 1;  // of an image: its block of image coordinates
inline constexpr std::size_t kRole = 1;          // of an object point: its control-support record
inline constexpr std::size_t kDistance = 1;      // of a camera: c
inline constexpr std::size_t kPixelSize = 2;     // of a camera
inline constexpr std::size_t kSigma0 = 1;        // of the least-squares parameters
inline constexpr std::size_t kFirstFile = 1;     // of the options: files of the normal equations
}  // namespace place_of

// Where the objects of a project were read. An entry is one append, so that a large project costs
// nothing worth mentioning; the order for looking up is made when it is needed.
class RecordPlaces {
 public:
  // Objects are known by an address that they keep, and a number for those of a list.
  using Key = std::pair<const void*, std::size_t>;

  // Starts a file; the records that follow are in it.
  void begin_file(std::string_view name) { files_.emplace_back(name); }
  void put(const void* object, std::int32_t line, std::int32_t column, std::size_t number = 0);
  // The place where the object was read last; line 0 when it never was.
  Place find(const void* object, std::size_t number = 0) const;

 private:
  struct Entry {
    Key key;
    std::uint32_t file;
    std::int32_t line;
    std::int32_t column;
  };
  std::vector<std::string> files_;
  mutable std::vector<Entry> entries_;
  mutable std::size_t sorted_ = 0;  // entries in order of their keys
};

// Receives findings. Readers without a listener do not look for any; what they accept, refuse and
// print is the same with and without one, unless it asks them to go on behind mistakes.
class FindingListener {
 public:
  FindingListener() = default;
  FindingListener(const FindingListener&) = delete;
  FindingListener& operator=(const FindingListener&) = delete;
  virtual ~FindingListener() = default;

  virtual void add(Finding finding) = 0;
  // Whether findings of this kind in this file are counted only, so that their words are not worth
  // the search.
  virtual bool only_counts(FindingCode /*code*/, std::string_view /*file*/) const { return false; }

  RecordPlaces places;
  // Whether those of image points are asked for, of which there are many.
  bool remembers_image_points = false;
  // Readers take up what follows a word or record that they cannot read, to find more. They fail in
  // the end all the same.
  bool goes_on = false;
  // Keywords of the lists that are known to lack something: a name that leads nowhere in them is no
  // finding of its own.
  std::set<std::string, std::less<>> incomplete;
};

// Keeps findings in the order in which they come. Of one code in one file it keeps the first ten
// and counts the others.
class FindingList : public FindingListener {
 public:
  static constexpr std::size_t kMaxAlike = 10;

  void add(Finding finding) override;
  bool only_counts(FindingCode code, std::string_view file) const override;
  // The findings kept. Where others like it were counted only, the tenth one says how many.
  std::vector<Finding> findings() const;
  // Number of findings kept of a severity.
  std::size_t count(Severity severity) const;
  bool has_errors() const { return count(Severity::error) > 0; }

 private:
  std::vector<Finding> kept_;
  std::map<std::pair<FindingCode, std::string>, std::size_t> alike_;
};

// One to three lines: "file:line:column: severity: message" and an indented "help: ...".
void print_finding(TextWriter& out, const Finding& finding);

// Text of a data file for people: UTF-8, control characters as "\x1b".
std::string printable(std::string_view text);
// The same between quotation marks, long words cut.
std::string quoted(std::string_view word);

// Those of the known words that differ least from a word, when one is near enough to be meant:
// "did you mean "camera-ccd"?". Empty otherwise.
std::string suggestion(std::string_view word, std::span<const std::string_view> known);

}  // namespace vorn
