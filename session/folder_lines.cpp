#include "session/folder_lines.h"

#include "session/source.h"
#include "store/folder_items.h"

namespace marrow {
namespace {
// The item list shows index messages and lost rows alike.
constexpr std::uint32_t kListDeletedToo = 1;
}  // namespace

std::vector<FolderLine> FolderLines(Source& source) {
  std::vector<FolderLine> lines;
  for (const FolderPath& f : source.Folders()) lines.push_back({f.path, source.Folder(f.row), 0});
  for (FolderLine& line : lines) {
    ForEachFolderItem(source.Reader(), source.State(), line.folder.nodeId, kListDeletedToo,
                      [&](const FolderItem&) { ++line.items; });
  }
  return lines;
}

}  // namespace marrow
