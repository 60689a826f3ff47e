// The rows the whole-file scan finds, one packed record per row in a
// disk-backed list: node rows of the node index, and the blocks it met.
#pragma once

#include <cstdint>
#include <string>

#include "store/disk_list.h"

namespace marrow {

// A leaf row of the node index as the scan met it.
struct ScannedNodeRow {
  std::uint64_t nodeId = 0;
  std::uint64_t dataBlock = 0;
  std::uint64_t subnodeBlock = 0;
  std::uint64_t parent = 0;
  std::uint8_t mark = 0;  // nonzero: an item the index may no longer reach
};

// A block the scan met: a row of a block-index leaf, or a block trailer.
struct ScannedBlockRow {
  std::uint64_t blockId = 0;
  std::uint64_t fileOffset = 0;
  std::uint16_t size = 0;
};

// A list of `Row`s on disk, read from the start by one cursor.
template <typename Row>
class ScanRowList {
 public:
  // `name` only matters where the temp path would be too long for a GUID name.
  explicit ScanRowList(const std::string& name);

  void Append(const Row& row);
  void Rewind() { list_.Rewind(); }
  // The row at the cursor; false at the end.
  bool Next(Row& row);
  std::uint32_t RecordCount() const { return list_.RecordCount(); }

 private:
  DiskList list_;
};

using ScannedNodeList = ScanRowList<ScannedNodeRow>;
using ScannedBlockList = ScanRowList<ScannedBlockRow>;

}  // namespace marrow
