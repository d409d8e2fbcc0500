#include "text/ordered_ranges.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/in_turn.h"
#include "base/workers.h"
#include "text/kept_console.h"

namespace vorn {
namespace {

// What one range writes.
struct RangeText {
  std::string first;
  std::string second;
  std::string standard;
  std::string error;
};

void append(TextWriter& out, std::string& text) {
  if (!text.empty()) out << std::exchange(text, {});
}

// Some ranges whose texts follow one another.
class Round {
 public:
  Round(TextWriter& first, TextWriter& second, std::size_t num_ranges)
      : first_(first),
        second_(second),
        standard_(standard_output()),
        error_(error_output()),
        ranges_(num_ranges),
        in_turn_(num_ranges) {}

  template <class Write>
  void work_at(std::size_t k, const Write& write) {
    RangeText& range = ranges_[k];
    KeptConsole console;
    KeptText first;
    KeptText second;
    write(first.writer(), second.writer());
    range.first = first.take();
    range.second = second.take();
    range.standard = console.take_standard();
    range.error = console.take_error();
    in_turn_.finish(k, [this](std::size_t next) { write_out(ranges_[next]); });
  }

 private:
  void write_out(RangeText& range) {
    append(first_, range.first);
    append(second_, range.second);
    append(standard_, range.standard);
    append(error_, range.error);
  }

  TextWriter& first_;
  TextWriter& second_;
  TextWriter& standard_;  // the console of the caller's thread
  TextWriter& error_;
  std::vector<RangeText> ranges_;
  InTurn in_turn_;
};

}  // namespace

void write_ranges(TextWriter& first, TextWriter& second, std::size_t count, std::size_t grain,
                  const WriteRangeToTwo& write) {
  constexpr std::size_t kRangesPerWorker = 16;
  if (workers().count() == 1 || count <= grain) return write(first, second, 0, count);
  const std::size_t per_round = grain * kRangesPerWorker * workers().count();
  for (std::size_t start = 0; start < count; start += per_round) {
    const std::size_t num_elements = std::min(per_round, count - start);
    Round round(first, second, (num_elements + grain - 1) / grain);
    for_each_range(num_elements, grain, [&](std::size_t begin, std::size_t end, std::size_t) {
      round.work_at(begin / grain,
                    [&](TextWriter& a, TextWriter& b) { write(a, b, start + begin, start + end); });
    });
  }
}

void write_ranges(TextWriter& out, std::size_t count, std::size_t grain, const WriteRange& write) {
  TextWriter nothing;
  write_ranges(out, nothing, count, grain,
               [&](TextWriter& text, TextWriter&, std::size_t begin, std::size_t end) {
                 write(text, begin, end);
               });
}

void visit_ranges(std::size_t count, std::size_t grain, const VisitRange& visit) {
  TextWriter nothing;
  write_ranges(nothing, count, grain,
               [&](TextWriter&, std::size_t begin, std::size_t end) { visit(begin, end); });
}

}  // namespace vorn
