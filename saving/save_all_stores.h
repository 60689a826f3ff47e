// A save over every store in the list, each into a folder of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "saving/save_pipeline.h"

namespace marrow {

// Whether the store has a folder to save: a checked folder anywhere below
// it, or the store's own item checked when its text is not the store's path.
bool HasCheckedFolder(TreeSink& tree, TreeItem storeItem, const std::string& storePath);

// The end of a run over all stores.
struct SaveAllEnd {
  bool cancelled = false;
  std::vector<SaveEnd> stores;  // one per store saved, in order
  std::string text;             // what the run ends with; "" when the caller shows the location
};

// Saves every store that has a checked folder, in list order, then each
// store still to be scanned (`pendingPaths`, checked rows not yet read):
// `scanPending` scans it and gives its pipeline, or nullptr. Stops on cancel.
SaveAllEnd SaveAllStores(const std::vector<SavePipeline*>& stores, const SaveOptions& options,
                         const std::vector<std::string>& pendingPaths = {},
                         const std::function<SavePipeline*(const std::string& path)>& scanPending = {});

}  // namespace marrow
