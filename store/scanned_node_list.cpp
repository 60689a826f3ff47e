#include "store/scanned_node_list.h"

#include <cstring>

namespace marrow {
namespace {

// Four 64-bit ids in row order, then the mark.
constexpr std::size_t kRecordSize = 4 * 8 + 1;

}  // namespace

ScannedNodeList::ScannedNodeList(const std::string& name) : list_(name, kRecordSize) {}

void ScannedNodeList::Append(const ScannedNodeRow& row) {
  std::uint8_t record[kRecordSize];
  const std::uint64_t ids[4] = {row.nodeId, row.dataBlock, row.subnodeBlock, row.parent};
  std::memcpy(record, ids, sizeof ids);
  record[32] = row.mark;
  list_.Append(record);
}

void ScannedNodeList::Rewind() { list_.Rewind(); }

bool ScannedNodeList::Next(ScannedNodeRow& row) {
  std::uint8_t record[kRecordSize];
  if (!list_.Next(record)) return false;
  const Bytes r(record);
  row = {ReadU64(r, 0), ReadU64(r, 8), ReadU64(r, 16), ReadU64(r, 24), record[32]};
  return true;
}

}  // namespace marrow
