#pragma once

namespace vorn::app {

// From now on data files whose names end in ".gz" or ".zst" are unpacked while they are read, as
// far as the command was built with zlib and zstd; without them they are refused with a sentence.
void use_packed_files();

}  // namespace vorn::app
