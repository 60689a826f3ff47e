// The page test and the branch-row steps shared by the walks of both indexes.
#include <algorithm>

#include "store/page_rows.h"
#include "store/store_reader.h"

namespace marrow {

bool StoreReader::CheckPage(Bytes page, bool force, PageFields& f) {
  const PageLayout& layout = Layout();
  f = ReadPageFields(page, layout);
  if (layout.wideCounts) lastLargePage_ = f;
  // A level-0 page of a node walk must be a node leaf; everything else (a
  // branch page, or any page of a block walk) has the shorter rows.
  const bool nodeLeaf = f.level == 0 && !force;
  const unsigned wantMax = nodeLeaf ? layout.nodeLeafMax : layout.otherMax;
  const unsigned wantSize = nodeLeaf ? layout.nodeLeafSize : layout.otherSize;
  if (f.max != wantMax || f.size != wantSize) return false;
  if (f.count > f.max) return false;
  // Rows may not run into the trailer. In the 32-bit form a full page does
  // (31 x 16 = 496 > 488), and the last row is given up.
  if (static_cast<std::size_t>(f.count) * f.size > layout.rowLimit) {
    f.count = static_cast<std::uint16_t>(layout.rowLimit / f.size);
    if (layout.wideCounts) lastLargePage_.count = f.count;
  }
  return true;
}

void StoreReader::CollectBranchRows(Bytes page, unsigned count, unsigned size, std::vector<std::uint64_t>& keys,
                                    std::vector<std::uint64_t>& offsets) {
  const std::uint64_t fileSize = FileSize();
  for (unsigned i = 0; i < count; ++i) {
    BranchEntry e = ReadBranchEntry(RowAt(page, i, size), IsAnsi() != 0);
    if (e.childOffset >= fileSize) continue;
    keys.push_back(e.key);
    offsets.push_back(e.childOffset);
  }
}

std::uint64_t StoreReader::DescendBranch(Bytes page, unsigned count, unsigned size, std::uint64_t key, int flag,
                                         std::vector<std::uint64_t>& offsets, std::vector<std::uint64_t>& keys) {
  const unsigned n = std::min(count, 255u);
  std::uint64_t last = 0;
  for (unsigned i = 0; i < n; ++i) {
    BranchEntry e = ReadBranchEntry(RowAt(page, i, size), IsAnsi() != 0);
    if (flag == 0) {
      offsets.push_back(e.childOffset);
      keys.push_back(e.key);
    } else if (e.key > key) {
      // The child before the first larger key holds the key; before the
      // first row there is none.
      return last;
    }
    last = e.childOffset;
  }
  return last;
}

}  // namespace marrow
