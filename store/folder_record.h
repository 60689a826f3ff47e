// One folder of the rebuilt tree.
#pragma once

#include <cstdint>
#include <string>

#include "store/folder_tree.h"

namespace marrow {

// Fixed node ids the rebuild relies on.
constexpr std::uint64_t kRootFolderId = 0x122;
constexpr std::uint64_t kTopOfFoldersId = 0x8022;
constexpr std::uint64_t kDeletedItemsId = 0x8062;
// The made-up parent of every orphan folder, and the one folder of a raw scan.
constexpr std::uint64_t kOrphanParentId = 1;

struct FolderRecord {
  std::string name;            // 0x3001
  std::string containerClass;  // 0x3613, "IPF.NOTE" when absent
  std::uint64_t nodeId = 0;
  std::uint64_t parentId = 0;   // 0 for a root
  std::uint32_t itemCount = 0;  // 0x3602
  TreeItem treeItem = kNoTreeItem;
  bool isLost = false;  // found by the scan, or made up
};

}  // namespace marrow
