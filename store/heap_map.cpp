#include "store/heap_map.h"

namespace marrow {

HeapMap BuildHeapMap(Bytes block, std::size_t mapOffset, std::size_t offsets, std::size_t count) {
  HeapMap map;
  map.mapOffset = mapOffset;
  map.allocations = ReadU16(block, mapOffset);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t start = ReadU16(block, offsets + 2 * i);
    if (start > mapOffset) continue;
    map.starts.push_back(start);
  }
  for (std::size_t i = 0; i < map.starts.size(); ++i) {
    const std::uint32_t end = i + 1 < map.starts.size() ? map.starts[i + 1] : static_cast<std::uint32_t>(mapOffset);
    map.sizes.push_back(end > map.starts[i] ? end - map.starts[i] : 0);
  }
  return map;
}

}  // namespace marrow
