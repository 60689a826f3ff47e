// The allocation map of a heap block.
#pragma once

#include <cstdint>
#include <vector>

#include "store/byte_order.h"

namespace marrow {

constexpr std::uint8_t kHeapSignature = 0xEC;
constexpr std::uint8_t kHeapClientPropertyList = 0xBC;
constexpr std::uint8_t kHeapClientTable = 0x7C;

// Where each joined child of a multi-block heap starts in the joined buffer.
struct HeapSegment {
  std::uint64_t start;
  std::uint64_t length;
};

struct HeapMap {
  std::size_t mapOffset = 0;      // where the map lies in the block
  std::uint16_t allocations = 0;  // as the map states it
  std::vector<std::uint32_t> starts;
  std::vector<std::uint32_t> sizes;
};

// Reads the `count` u16 offsets at `offsets` (allocation starts and the end
// of the last). Offsets beyond the map are ignored; each size runs to the
// next start, the last to the map, and is never negative.
HeapMap BuildHeapMap(Bytes block, std::size_t mapOffset, std::size_t offsets, std::size_t count);

}  // namespace marrow
