#include "saving/save_all_stores.h"

#include "store/store_reader.h"

namespace marrow {

bool HasCheckedFolder(TreeSink& tree, TreeItem storeItem, const std::string& storePath) {
  // Depth first, without recursion: the first checked folder answers.
  std::vector<TreeItem> stack;
  for (TreeItem child = tree.FirstChild(storeItem); child != 0; child = tree.NextSibling(child)) stack.push_back(child);
  while (!stack.empty()) {
    const TreeItem item = stack.back();
    stack.pop_back();
    if (tree.IsChecked(item)) return true;
    for (TreeItem child = tree.FirstChild(item); child != 0; child = tree.NextSibling(child)) stack.push_back(child);
  }
  return tree.IsChecked(storeItem) && tree.Text(storeItem) != storePath;
}

SaveAllEnd SaveAllStores(const std::vector<SavePipeline*>& stores, const SaveOptions& options,
                         const std::vector<std::string>& pendingPaths,
                         const std::function<SavePipeline*(const std::string& path)>& scanPending) {
  SaveAllEnd end;
  std::vector<bool> toSave;
  for (SavePipeline* store : stores) toSave.push_back(store->HasCheckedFolder());
  auto save = [&](SavePipeline& store) {
    end.stores.push_back(store.SaveStore(options));
    end.cancelled = end.cancelled || end.stores.back().cancelled;
  };
  for (std::size_t i = 0; i < stores.size() && !end.cancelled; ++i) {
    if (toSave[i]) save(*stores[i]);
  }
  for (std::size_t i = 0; i < pendingPaths.size() && !end.cancelled && scanPending; ++i) {
    SavePipeline* scanned = scanPending(pendingPaths[i]);
    if (scanned != nullptr && scanned->Reader().SourcePath() == pendingPaths[i]) save(*scanned);
  }
  if (end.cancelled) {
    end.text = "Saving process aborted by user.";
  } else if (options.kind == kOutputServer) {
    end.text = "Data has been saved.";
  } else if (options.kind == kOutputDbx) {
    end.text =
        "Data has been saved in Outlook Express. Open the destination Outlook Express folder to "
        "see the recovered "
        "items.";
  }
  return end;
}

}  // namespace marrow
