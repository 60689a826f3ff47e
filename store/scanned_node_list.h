// The node rows the whole-file scan found, one packed record per row in a
// disk-backed list.
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

class ScannedNodeList {
 public:
  // `name` only matters where the temp path would be too long for a GUID name.
  explicit ScannedNodeList(const std::string& name);

  void Append(const ScannedNodeRow& row);
  void Rewind();
  // The row at the cursor; false at the end.
  bool Next(ScannedNodeRow& row);
  std::uint32_t RecordCount() const { return list_.RecordCount(); }

 private:
  DiskList list_;
};

}  // namespace marrow
