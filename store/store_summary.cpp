#include "store/store_summary.h"

#include <unordered_map>

namespace marrow {

std::uint64_t StoreSummary::TotalMessages() const {
  std::uint64_t total = 0;
  for (const FolderSummary& f : folders) total += f.messages;
  return total;
}

StoreSummary SummarizeStore(StoreReader& reader) {
  reader.folderRows.clear();
  reader.BuildFolderRows();

  // One walk of the node index counts the messages of every folder; the
  // counts are those a listing of each folder would give.
  std::unordered_map<std::uint64_t, std::uint64_t> messagesByParent;
  VisitedSet pages;
  reader.ForEachNodeEntry(reader.nodeRootOffset, pages, [&](const NodeEntry& e) {
    if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) ++messagesByParent[e.parent];
  });

  StoreSummary s;
  for (const FolderRow& row : reader.folderRows) {
    if (reader.Cancelled()) break;
    auto count = messagesByParent.find(row.nodeId);
    FolderSummary& f = s.folders.emplace_back();
    f.row = row;
    f.messages = count == messagesByParent.end() ? 0 : count->second;
    reader.ReadBagFromBlock(row.dataBlock, f.properties, {});
  }
  s.fileSize = reader.FileSize();
  s.versionWord = reader.versionWord;
  s.cryptByte = reader.cryptByte;
  s.isAnsi = reader.IsAnsi() != 0;
  s.isLargePage = reader.IsLargePage();
  s.cryptMethod = reader.CryptMethod();
  s.noneVotes = reader.noneVotes;
  s.permuteVotes = reader.permuteVotes;
  s.cyclicVotes = reader.cyclicVotes;
  s.nodeRootOffset = reader.nodeRootOffset;
  s.blockRootOffset = reader.blockRootOffset;
  return s;
}

}  // namespace marrow
