#pragma once

#include "lsq/stages/statistics.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// What the report says of an iteration.

void print_iteration_heading(std::int32_t number, TextWriter& report);
// Lists the corrections of the groups that the options ask for.
void list_all_corrections(const BundleProject& project, TextWriter& report);
void print_mean_changes(const IterationStatistics& statistics, TextWriter& report);
// Counts, v'Pv and sigma 0.
void print_statistics(const IterationStatistics& statistics, TextWriter& report);
void print_cpu_time(const IterationStatistics& statistics, TextWriter& report);
// Names the parameter that is beyond its limit, on standard output.
void print_open_parameter(const IterationStatistics& statistics);

}  // namespace vorn
