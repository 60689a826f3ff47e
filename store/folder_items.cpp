#include "store/folder_items.h"

#include <unordered_set>

#include "store/lost_item_scanner.h"
#include "store/store_reader.h"

namespace marrow {

void ForEachFolderItem(StoreReader& reader, std::uint64_t folderId, std::uint32_t saveDeletedMode,
                       const std::function<void(const FolderItem&)>& visit) {
  const bool deep = reader.deepMode;
  if (deep) reader.shownBlocks.clear();
  VisitedSet visited;
  reader.ListNodeChildren(reader.nodeRootOffset, folderId, visited,
                          [&](std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock) {
                            visit({dataBlock, nodeId, subnodeBlock, false});
                          });
  if (!deep || (saveDeletedMode != 1 && saveDeletedMode != 3)) return;

  std::unordered_set<std::uint64_t> shown(reader.shownBlocks.begin(), reader.shownBlocks.end());
  NodeRowLists& rows = reader.Scanner().messages;
  rows.nodeId.Rewind();
  rows.dataBlock.Rewind();
  rows.subnodeBlock.Rewind();
  rows.parent.Rewind();
  rows.mark.Rewind();
  std::uint64_t id = 0, data = 0, subnode = 0, parent = 0;
  std::uint8_t mark = 0;
  while (rows.nodeId.NextU64(id) && rows.dataBlock.NextU64(data) && rows.subnodeBlock.NextU64(subnode) &&
         rows.parent.NextU64(parent) && rows.mark.Next(&mark)) {
    if (reader.Cancelled()) return;
    if (parent != folderId && !reader.rawMode) continue;
    if (!shown.insert(data).second) continue;
    reader.shownBlocks.push_back(data);
    visit({data, id, subnode, mark != 0});
  }
}

}  // namespace marrow
