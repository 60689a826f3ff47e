// The items of one folder, as the item list and the save walk meet them.
#pragma once

#include <cstdint>
#include <functional>

namespace marrow {

class StoreReader;
struct RecoveryState;

struct FolderItem {
  std::uint64_t dataBlock;
  std::uint64_t nodeId;
  std::uint64_t subnodeBlock;
  bool isLost;
};

// The messages the node index knows under `folderId`, in index order; then,
// once the scan has run and `saveDeletedMode` is 1 or 3, the scanned message
// rows of this folder (of every folder in a raw scan) whose data block was
// not handed on yet.
void ForEachFolderItem(StoreReader& reader, const RecoveryState& state, std::uint64_t folderId,
                       std::uint32_t saveDeletedMode, const std::function<void(const FolderItem&)>& visit);

}  // namespace marrow
