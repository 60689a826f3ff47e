#include "store/folder_items.h"

#include <unordered_set>

#include "store/lost_item_scanner.h"
#include "store/recovery_state.h"
#include "store/store_reader.h"

namespace marrow {

void ForEachFolderItem(StoreReader& reader, const RecoveryState& state, std::uint64_t folderId,
                       std::uint32_t saveDeletedMode, const std::function<void(const FolderItem&)>& visit) {
  const bool deep = reader.UsesScan();
  // Data blocks already handed on: a scanned row of the same message is not listed again.
  std::unordered_set<std::uint64_t> shown;
  VisitedSet visited;
  reader.ListNodeChildren(reader.NodeRoot(), folderId, visited,
                          [&](std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock) {
                            if (deep) shown.insert(dataBlock);
                            visit({dataBlock, nodeId, subnodeBlock, false});
                          });
  if (!deep || (saveDeletedMode != 1 && saveDeletedMode != 3)) return;

  ScannedNodeList& rows = reader.Scanner().messages;
  rows.Rewind();
  ScannedNodeRow row;
  while (rows.Next(row)) {
    if (reader.Cancelled()) return;
    if (row.parent != folderId && !state.rawMode) continue;
    if (!shown.insert(row.dataBlock).second) continue;
    visit({row.dataBlock, row.nodeId, row.subnodeBlock, row.mark != 0});
  }
}

}  // namespace marrow
