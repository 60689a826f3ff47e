// Reads a disk list of 8-byte records back from the start.
#pragma once

#include <cstdint>
#include <vector>

#include "store/disk_list.h"

namespace marrow::test {

inline std::vector<std::uint64_t> Column(DiskList& list) {
  std::vector<std::uint64_t> out;
  list.Rewind();
  std::uint64_t v = 0;
  while (list.NextU64(v)) out.push_back(v);
  return out;
}

}  // namespace marrow::test
