#include "store/block_index_walk.h"

#include "store/page_rows.h"

namespace marrow {

void ForEachBlockEntry(StoreReader& reader, const std::function<void(const BlockEntry&)>& visit) {
  VisitedSet visited;
  std::vector<std::uint64_t> stack = {reader.BlockRoot()};
  std::vector<std::uint64_t> keys, children;
  while (!stack.empty()) {
    const std::uint64_t offset = stack.back();
    stack.pop_back();
    if (reader.Cancelled()) return;
    if (offset >= reader.FileSize() || !visited.Add(offset)) continue;
    const PageLayout& layout = LayoutFor(reader.IsAnsi() != 0, reader.IsLargePage());
    std::vector<std::uint8_t> page = reader.ReadAt(offset, layout.pageSize);
    PageFields f;
    if (ReadU8(page, layout.typeOffset) != kPageTypeBlockIndex || !reader.CheckPage(page, true, f)) {
      continue;
    }
    if (f.level == 0) {
      for (unsigned i = 0; i < f.count; ++i) visit(ReadBlockEntry(RowAt(page, i, f.size), reader.IsAnsi() != 0));
      continue;
    }
    keys.clear();
    children.clear();
    reader.CollectBranchRows(page, f.count, f.size, keys, children);
    stack.insert(stack.end(), children.rbegin(), children.rend());
  }
}

}  // namespace marrow
