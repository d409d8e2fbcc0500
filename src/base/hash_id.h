#pragma once

#include <cstdint>
#include <string_view>

namespace vorn {

// Hash of an identifier: SipHash-1-3 (Aumasson and Bernstein 2012) with a key that the process
// chooses when it starts. Identifiers come from files, and whoever could foresee their hashes could
// write a file whose identifiers all meet in one place of a table. Nothing that is printed depends
// on the hashes.
std::uint64_t hash_id(std::string_view id) noexcept;

}  // namespace vorn
