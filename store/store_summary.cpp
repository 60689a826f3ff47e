#include "store/store_summary.h"

#include <unordered_map>

namespace marrow {

std::uint64_t StoreSummary::TotalMessages() const {
  std::uint64_t total = 0;
  for (const FolderSummary& f : folders) total += f.messages;
  return total;
}

StoreSummary SummarizeStore(StoreReader& reader) {
  const std::vector<FolderRow> rows = reader.ReadFolderRows();

  // One walk of the node index counts the messages of every folder; the
  // counts are those a listing of each folder would give.
  std::unordered_map<std::uint64_t, std::uint64_t> messagesByParent;
  VisitedSet pages;
  reader.ForEachNodeEntry(reader.NodeRoot(), pages, [&](const NodeEntry& e) {
    if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) ++messagesByParent[e.parent];
  });

  StoreSummary s;
  for (const FolderRow& row : rows) {
    if (reader.Cancelled()) break;
    auto count = messagesByParent.find(row.nodeId);
    FolderSummary& f = s.folders.emplace_back();
    f.row = row;
    f.messages = count == messagesByParent.end() ? 0 : count->second;
    reader.ReadBagFromBlock(row.dataBlock, f.properties, {});
  }
  s.fileSize = reader.FileSize();
  s.versionWord = reader.Header().versionWord;
  s.cryptByte = reader.Header().cryptByte;
  s.isAnsi = reader.IsAnsi() != 0;
  s.isLargePage = reader.IsLargePage();
  s.cryptMethod = reader.CryptMethod();
  s.noneVotes = reader.Votes().none;
  s.permuteVotes = reader.Votes().permute;
  s.cyclicVotes = reader.Votes().cyclic;
  s.nodeRootOffset = reader.NodeRoot();
  s.blockRootOffset = reader.BlockRoot();
  return s;
}

}  // namespace marrow
