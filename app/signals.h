#pragma once

namespace vorn::app {

// Makes signals that end the process (interrupt, hang-up, termination, time limit) leave earlier
// results as they are and no temporary file. A file that grows beyond its limit and a pipe without
// a reader become errors of the write. Signals that were ignored stay ignored.
void handle_signals();

// Takes the descriptors of standard streams that the process was started without, so that no file
// gets them. Writing to them fails.
void occupy_standard_streams();

}  // namespace vorn::app
