// A store recovered into a tree of its own, and that tree read back as paths.
// Header-only: only suites that link the recovery driver include it.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "store/memory_tree.h"
#include "store/recovery.h"
#include "store/start_scan.h"
#include "store/store_reader.h"

namespace marrow::test {

struct Recovered {
  std::unique_ptr<StoreReader> reader;
  RecoveryState state;
  MemoryTree tree;
  TreeItem root = 0;
  ScanOutcome outcome;

  // Every item below the root in display order, with its path ("/Top/Inbox").
  std::vector<std::pair<std::string, TreeItem>> Paths() const {
    std::vector<std::pair<std::string, TreeItem>> out;
    std::vector<std::string> trail;
    tree.ForEachBelow(root, [&](TreeItem item, int depth) {
      trail.resize(static_cast<std::size_t>(depth - 1));
      trail.push_back(tree.Find(item)->text);
      std::string path;
      for (const std::string& part : trail) path += "/" + part;
      out.emplace_back(path, item);
    });
    return out;
  }
  // The folder row shown as `item`, or null.
  const FolderRecord* RowOf(TreeItem item) const {
    for (const FolderRecord& f : state.folders) {
      if (f.treeItem == item) return &f;
    }
    return nullptr;
  }
};

// One run of the driver over a reader already open and set up.
inline Recovered RecoverWith(std::unique_ptr<StoreReader> reader, bool retryPass = false,
                             bool rawMode = false) {
  Recovered r;
  r.reader = std::move(reader);
  r.state.rawMode = rawMode;
  r.root = r.tree.AddRoot("source", 9);
  r.outcome.opened = true;
  r.outcome.runs = RecoverStore(*r.reader, r.state, r.tree, r.root, retryPass) ? 1 : 0;
  return r;
}

// A scan started as the application starts one: by path, with the ladder.
inline Recovered ScanPath(const ScanRequest& request, const std::string& tempFolder = {}) {
  Recovered r;
  r.reader = std::make_unique<StoreReader>(tempFolder);
  r.root = r.tree.AddRoot(request.sourcePath, 9);
  r.outcome = StartScan(*r.reader, r.state, r.tree, r.root, request);
  return r;
}

}  // namespace marrow::test
