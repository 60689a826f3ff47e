// A store of a gigabyte or more for the scan benchmarks, built from the samples.
#pragma once

#include <cstdint>
#include <string>

namespace marrow::bench {

// Real sample stores laid end to end, each on a 64 KiB boundary with zero
// filler between, in the form of the first; at least `targetBytes` long.
// Kept in the temp folder and reused while large enough. "" without samples.
std::string BuildLargeStore(std::uint64_t targetBytes);

}  // namespace marrow::bench
