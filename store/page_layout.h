// Index page layouts of the three store forms, and the rows those pages hold.
#pragma once

#include <cstddef>
#include <cstdint>

#include "store/byte_order.h"

namespace marrow {

constexpr std::uint8_t kPageTypeBlockIndex = 0x80;
constexpr std::uint8_t kPageTypeNodeIndex = 0x81;

constexpr std::size_t kSmallPageSize = 512;
constexpr std::size_t kLargePageSize = 4096;

// Where a page keeps its trailer fields. The trailer is placed by the page
// size alone; the width of the rows depends on the 32/64-bit form.
struct PageLayout {
  std::size_t pageSize;
  std::size_t countOffset, maxOffset, sizeOffset, levelOffset, typeOffset, typeRepeatOffset;
  bool wideCounts;                     // count and maximum are u16 (4096-byte pages)
  std::size_t rowLimit;                // count x size may not pass this; the count is cut to fit
  unsigned nodeLeafMax, nodeLeafSize;  // leaf of the node index
  unsigned otherMax, otherSize;        // branch page or leaf of the block index
  bool hasTypeRepeat;
};

const PageLayout& LayoutFor(bool isAnsi, bool isLargePage);

// The trailer fields of one page, as stored.
struct PageFields {
  std::uint16_t count = 0;
  std::uint16_t max = 0;
  std::uint8_t size = 0;
  std::uint8_t level = 0;
  std::uint8_t type = 0;
  std::uint8_t typeRepeat = 0;
};

PageFields ReadPageFields(Bytes page, const PageLayout& layout);

// A leaf row of the node index.
struct NodeEntry {
  std::uint32_t nodeId;
  std::uint64_t dataBlock;
  std::uint64_t subnodeBlock;
  std::uint32_t parent;
};

// A leaf row of the block index.
struct BlockEntry {
  std::uint64_t blockId;
  std::uint64_t fileOffset;
  std::uint16_t size;
  std::uint16_t refCount;
};

// A row of a branch page of either index.
struct BranchEntry {
  std::uint64_t key;
  std::uint64_t childBlock;
  std::uint64_t childOffset;
};

NodeEntry ReadNodeEntry(Bytes row, bool isAnsi);
BlockEntry ReadBlockEntry(Bytes row, bool isAnsi);
BranchEntry ReadBranchEntry(Bytes row, bool isAnsi);

// Node types, from the low five bits of a NodeId.
constexpr std::uint32_t kNodeTypeMask = 31;
constexpr std::uint32_t kNodeTypeFolder = 2;
constexpr std::uint32_t kNodeTypeMessage = 4;

}  // namespace marrow
