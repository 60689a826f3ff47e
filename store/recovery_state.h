// What one recovery of a store found, and the mode it ran in. Owned by
// whoever runs the recovery, next to the reader it ran over; the folder
// listings, the snapshot and the save walk read it from there.
#pragma once

#include <vector>

#include "store/folder_record.h"
#include "store/node_rows.h"

namespace marrow {

struct RecoveryState {
  // A raw scan: the node index is not read, and every scanned message is
  // listed under the one folder the scan makes.
  bool rawMode = false;
  // Folder rows of the node index (or of a snapshot), in index order.
  std::vector<FolderRow> folderRows;
  // The folders of the rebuilt tree, in the order the recovery found them.
  std::vector<FolderRecord> folders;
};

}  // namespace marrow
