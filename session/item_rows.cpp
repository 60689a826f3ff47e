#include "session/item_rows.h"

#include "content/item_render.h"
#include "session/source.h"
#include "store/folder_items.h"
#include "store/temp_file.h"

namespace marrow {
namespace {
// Lost rows are listed with the index messages.
constexpr std::uint32_t kListDeletedToo = 1;
}  // namespace

std::vector<ListRow> FolderItemRows(Source& source, std::size_t folderRow) {
  StoreReader& reader = source.Reader();
  ItemReader items(reader, DefaultTempFolder());
  std::vector<ListRow> rows;
  ForEachFolderItem(reader, source.State(), source.Folder(folderRow).nodeId, kListDeletedToo, [&](const FolderItem& f) {
    ItemRow r;
    if (!items.ReadItemRow(f.dataBlock, f.nodeId, f.subnodeBlock, f.isLost, r)) return;
    rows.push_back({r, ItemIcon(ClassifyItem(r.messageClass), r.iconIndex, r.messageFlags),
                    (r.messageFlags & kFlagHasAttachments) != 0});
  });
  return rows;
}

}  // namespace marrow
