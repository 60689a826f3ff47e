// The item list of one folder of a parsed source: what the save of
// everything would take, index messages first, then the lost rows that
// still read as items.
#pragma once

#include <cstddef>
#include <vector>

#include "content/item_reader.h"

namespace marrow {

class Source;

struct ListRow {
  ItemRow item;
  int icon = 0;  // ItemIcon
  bool attachment = false;
  const char* Status() const { return item.isLost ? "Lost/Deleted" : "Existing"; }
};

// The rows of the folder at `folderRow` (FolderPath::row).
std::vector<ListRow> FolderItemRows(Source& source, std::size_t folderRow);

}  // namespace marrow
