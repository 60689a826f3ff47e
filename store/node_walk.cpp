// Walks of the node index: all folder rows, one node by key, the messages of a folder.
#include <unordered_set>

#include "store/page_rows.h"
#include "store/store_reader.h"

namespace marrow {

void StoreReader::WalkNodePage(std::uint64_t offset, std::deque<std::uint64_t>& pending, std::vector<FolderRow>& rows) {
  if (Cancelled() || offset >= FileSize()) return;
  std::vector<std::uint8_t> page;
  ReadPage(offset, page);
  if (ReadU8(page, Layout().typeOffset) != kPageTypeNodeIndex) return;
  PageFields f;
  if (!CheckPage(page, false, f)) return;

  if (f.level == 0) {
    if (scan_ != nullptr) {
      scan_->ExtractNodeRows(page);
      return;
    }
    const unsigned count = f.count > 254 ? 255 : f.count;
    for (unsigned i = 0; i < count; ++i) {
      NodeEntry e = ReadNodeEntry(RowAt(page, i, f.size), IsAnsi() != 0);
      if ((e.nodeId & kNodeTypeMask) == kNodeTypeFolder) {
        rows.push_back({e.nodeId, e.dataBlock, e.subnodeBlock, e.parent});
      }
    }
    return;
  }

  std::vector<std::uint64_t> keys, offsets;
  CollectBranchRows(page, f.count, f.size, keys, offsets);
  for (std::uint64_t child : offsets) {
    if (Cancelled()) break;
    pending.push_back(child);
  }
}

std::vector<FolderRow> StoreReader::ReadFolderRows() {
  std::vector<FolderRow> rows;
  Sink().SetStatusLine("Please wait...");
  // Breadth first: pages are taken from the head while their children join
  // at the tail. The bar therefore measures against a growing list.
  std::deque<std::uint64_t> pending;
  std::unordered_set<std::uint64_t> done;
  WalkNodePage(NodeRoot(), pending, rows);
  for (std::size_t taken = 0; taken < pending.size(); ++taken) {
    if (Cancelled()) break;
    if (taken > 0) Sink().SetProgress(static_cast<int>(100 * taken / pending.size()));
    const std::uint64_t offset = pending[taken];
    if (!done.insert(offset).second) continue;
    WalkNodePage(offset, pending, rows);
  }
  return rows;
}

std::int64_t StoreReader::FindNodeRow(std::uint64_t pageOffset, std::uint64_t nodeId, std::uint64_t& dataBlock,
                                      std::uint64_t& subnodeBlock, VisitedSet& visited) {
  std::vector<std::uint8_t> page;
  std::vector<std::uint64_t> scratchKeys, scratchOffsets;
  std::uint64_t offset = pageOffset;
  try {
    for (std::size_t depth = 0; depth <= kMaxIndexDepth; ++depth) {
      if (!visited.Add(offset)) return 0;
      if (Cancelled() || offset >= FileSize()) return 0;
      ReadPage(offset, page);
      if (ReadU8(page, Layout().typeOffset) != kPageTypeNodeIndex) return 0;
      PageFields f;
      if (!CheckPage(page, false, f)) return 0;
      if (f.level == 0) {
        // The whole leaf is read, so the last equal row wins.
        std::int64_t found = 0;
        for (unsigned i = 0; i < f.count; ++i) {
          if (Cancelled()) break;
          NodeEntry e = ReadNodeEntry(RowAt(page, i, f.size), IsAnsi() != 0);
          if (e.nodeId == nodeId) {
            dataBlock = e.dataBlock;
            subnodeBlock = e.subnodeBlock;
            found = 1;
          }
        }
        return found;
      }
      offset = DescendBranch(page, f.count, f.size, nodeId, 1, scratchOffsets, scratchKeys);
      if (offset == 0) return 0;
    }
    return 0;
  } catch (...) {
    return 0;
  }
}

void StoreReader::ListNodeChildren(std::uint64_t pageOffset, std::uint64_t folderNodeId, VisitedSet& visited,
                                   const ItemHandler& handler) {
  // The parent is not the index's key, so a listing reads every page of the node index.
  ForEachNodeEntry(pageOffset, visited, [&](const NodeEntry& e) {
    if (e.parent != folderNodeId || (e.nodeId & kNodeTypeMask) != kNodeTypeMessage) return;
    if (handler) handler(e.dataBlock, e.nodeId, e.subnodeBlock);
  });
}

void StoreReader::ForEachNodeEntry(std::uint64_t pageOffset, VisitedSet& visited,
                                   const std::function<void(const NodeEntry&)>& visit) {
  // Depth first, children in row order. An explicit stack keeps a deep or
  // looping damaged tree from exhausting the call stack.
  std::vector<std::uint8_t> page;
  auto step = [&](std::uint64_t offset, std::vector<std::uint64_t>& children) {
    if (!visited.Add(offset)) return;
    if (Cancelled() || offset >= FileSize()) return;
    ReadPage(offset, page);
    if (ReadU8(page, Layout().typeOffset) != kPageTypeNodeIndex) return;
    PageFields f;
    if (!CheckPage(page, false, f)) return;
    if (f.level == 0) {
      for (unsigned i = 0; i < f.count; ++i) {
        if (Cancelled()) break;
        visit(ReadNodeEntry(RowAt(page, i, f.size), IsAnsi() != 0));
      }
      return;
    }
    std::vector<std::uint64_t> keys;
    DescendBranch(page, f.count, f.size, 0, 0, children, keys);
  };

  struct Frame {
    std::vector<std::uint64_t> children;
    std::size_t next = 0;
  };
  std::vector<Frame> stack;
  stack.push_back({{pageOffset}, 0});
  while (!stack.empty()) {
    Frame& top = stack.back();
    if (top.next >= top.children.size()) {
      stack.pop_back();
      continue;
    }
    const std::uint64_t offset = top.children[top.next++];
    std::vector<std::uint64_t> children;
    try {
      step(offset, children);
    } catch (...) {
      // A fault in one subtree drops it; the walk goes on with the next sibling.
      continue;
    }
    if (!children.empty()) stack.push_back({std::move(children), 0});
  }
}

}  // namespace marrow
