#pragma once

#include <cstddef>
#include <functional>

#include "text/text_writer.h"

namespace vorn {

// Work on the consecutive ranges of some `grain` elements that make up [0, count), shared among the
// workers, which may print: what ranges write comes out in the order of the elements, whoever
// worked at them and when. Where there is one worker, or one range, all is written at once.

// Calls write(out, begin, end) for each range. What it writes to its `out`, which stands for the
// given one, and on the console appears there; some MB wait for those before them at a time.
using WriteRange = std::function<void(TextWriter& out, std::size_t begin, std::size_t end)>;
void write_ranges(TextWriter& out, std::size_t count, std::size_t grain, const WriteRange& write);

// The same for ranges that write to two files at a time.
using WriteRangeToTwo =
    std::function<void(TextWriter& first, TextWriter& second, std::size_t begin, std::size_t end)>;
void write_ranges(TextWriter& first, TextWriter& second, std::size_t count, std::size_t grain,
                  const WriteRangeToTwo& write);

// Calls visit(begin, end) for each range, which may print on the console only.
using VisitRange = std::function<void(std::size_t begin, std::size_t end)>;
void visit_ranges(std::size_t count, std::size_t grain, const VisitRange& visit);

}  // namespace vorn
