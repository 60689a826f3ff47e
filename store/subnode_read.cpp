// A node's subnode list, and the data of one subnode.
#include "store/store_reader.h"

namespace marrow {
namespace {
constexpr std::uint8_t kSubnodeBlockType = 2;
}

void StoreReader::ReadSubnodeList(std::uint64_t subnodeBlockId, SubnodeLists& lists) {
  if (subnodeBlockId == 0) return;
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!FindBlock(BlockRoot(), subnodeBlockId, offset, size, visited)) return;
  if (size > kMaxBlockSize || offset >= FileSize()) return;
  // Subnode blocks are stored as they are: no encoding, no compression.
  std::vector<std::uint8_t> block = ReadAt(offset, size);
  const bool wide = IsAnsi() == 0;
  const std::size_t header = wide ? 8 : 4;
  if (size <= header || block[0] != kSubnodeBlockType) return;

  const std::uint8_t level = block[1];
  const std::size_t rows = ReadU16(block, 2);
  const std::size_t field = wide ? 8 : 4;
  // Leaf rows carry NodeId, data block and subnode block; rows of a higher
  // level carry NodeId and the block of a lower subnode list, which is not
  // followed.
  const std::size_t fields = level == 0 ? 3 : 2;
  const std::size_t rowSize = field * fields;
  if (rows * rowSize + header > size) return;
  auto read = [&](std::size_t at) { return wide ? ReadU64(block, at) : ReadU32(block, at); };
  for (std::size_t r = 0; r < rows; ++r) {
    const std::size_t at = header + r * rowSize;
    // A NodeId is 32 bits; wide rows pad it to 8 bytes, and some writers
    // leave junk in the padding.
    lists.push_back({read(at) & 0xFFFFFFFF, read(at + field), fields == 3 ? read(at + 2 * field) : 0, read(at)});
  }
}

void StoreReader::ReadSubnodeInto(std::uint64_t nodeId, const SubnodeLists& lists, ByteSink& out,
                                  std::uint64_t& childSubnode) {
  const SubnodeRow* row = nullptr;
  for (const SubnodeRow& r : lists) {
    if (r.nodeId == nodeId) {
      row = &r;
      break;
    }
  }
  if (row == nullptr) return;
  childSubnode = row->subnodeBlock & ~std::uint64_t{1};
  const std::uint64_t data = row->dataBlock & ~std::uint64_t{1};
  if (data & 2) {
    ReadDataTreeInto(data, out);
    return;
  }
  std::vector<std::uint8_t> bytes;
  if (ReadOneBlock(data, bytes, true)) out.Append(bytes);
}

bool StoreReader::ReadSubnodeHeap(std::uint64_t nodeId, const SubnodeLists& lists, std::vector<std::uint8_t>& buffer,
                                  std::vector<HeapSegment>& segments, std::uint64_t& childSubnode) {
  for (const SubnodeRow& r : lists) {
    if (r.nodeId != nodeId) continue;
    childSubnode = r.subnodeBlock & ~std::uint64_t{1};
    const std::uint64_t data = r.dataBlock & ~std::uint64_t{1};
    VisitedSet visited;
    std::uint64_t offset = 0, size = 0;
    if (!FindBlock(BlockRoot(), data, offset, size, visited)) return false;
    if (size > kMaxBlockSize || offset >= FileSize()) return false;
    buffer = ReadAt(offset, size);
    segments.clear();
    NormalizeBlock(buffer, data, &segments);
    return true;
  }
  return false;
}

}  // namespace marrow
