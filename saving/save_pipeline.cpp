#include "saving/save_pipeline.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>

#include "saving/save_filter.h"
#include "store/ascii_case.h"
#include "store/recovery_state.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// The longest output folder path, in characters, a save makes.
constexpr std::size_t kMaxOutputPath = 245;

// Characters, not bytes: UTF-8 continuation bytes are not counted.
std::size_t CharacterCount(const std::string& s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

bool IsTopFolder(const std::string& upper) {
  return upper == "IPM_SUBTREE" || upper == "TOP OF PERSONAL FOLDERS" || upper == "TOP OF OUTLOOK DATA FILE";
}

// The folder paths of chosen items, each once, in first-seen order.
std::vector<std::string> DistinctFolders(const std::vector<ChosenItem>& items) {
  std::vector<std::string> folders;
  for (const ChosenItem& item : items) {
    if (std::find(folders.begin(), folders.end(), item.folderPath) == folders.end()) folders.push_back(item.folderPath);
  }
  return folders;
}

}  // namespace

std::string SafePathComponent(const std::string& name) {
  std::string out = name;
  for (char& c : out) {
    if (c == '/' || c == ':' || c == '*' || c == '?' || c == '"' || c == '<' || c == '>' || c == '|' || c == '\0') {
      c = '_';
    }
  }
  if (out.empty() || out == "." || out == "..") out.assign(1, '_');
  return out;
}

OutputRoute RouteOf(OutputKind kind) {
  switch (kind) {
    case kOutputPst: return {true, true, 3};
    case kOutputMsg: return {true, false, 3};
    case kOutputDbx: return {false, true, 3};
    case kOutputServer: return {true, false, 3};
    case kOutputTxt: return {true, false, 0};
    case kOutputRtf: return {true, false, 1};
    case kOutputDoc: return {true, false, 4};
    case kOutputHtml: return {true, false, 5};
    case kOutputMhtml: return {true, false, 10};
    case kOutputPdf: return {true, false, 2001};
    default: return {false, false, 3};
  }
}

SavePipeline::SavePipeline(StoreReader& reader, const RecoveryState& state, TreeSink& tree,
                           TreeItem storeItem, const ProfileStore& profile)
    : reader_(reader), state_(state), tree_(tree), storeItem_(storeItem), profile_(profile) {}

void SavePipeline::SetConversion(ItemConversion convert, NonMailRebuild rebuild) {
  convert_ = std::move(convert);
  rebuild_ = std::move(rebuild);
}

bool SavePipeline::IsCancelled() { return reader_.Cancelled(); }

bool SavePipeline::HasCheckedFolder() { return marrow::HasCheckedFolder(tree_, storeItem_, reader_.SourcePath()); }

SaveEnd SavePipeline::SaveStore(const SaveOptions& options) {
  filter_ = &options.filter;
  chosen_ = nullptr;
  const OutputRoute route = RouteOf(options.kind);
  std::string destination = options.destinationPath;
  if (!destination.empty() && destination.back() != '/') destination += '/';
  // Each store gets a folder of its own, named after the source file, so a
  // rerun never meets old output.
  if (options.kind != kOutputServer && !route.singleStore) {
    const std::string base = fs::path(reader_.SourcePath()).filename().string();
    std::string name = base;
    std::error_code ec;
    for (int n = 1; fs::exists(destination + name, ec); ++n) name = base + "(" + std::to_string(n) + ")";
    destination += SafePathComponent(name) + "/";
  }
  run_.outputKind = options.kind;
  run_.saveAsCode = route.saveAsCode;
  if (options.kind == kOutputPrint) {  // the pipeline has no branch for printing: nothing is written
    ResetRun();
    return EndOfRun();
  }
  RunSave(route.usesEngine, route.singleStore, !options.hierarchyWithoutRoot, destination, 0, options.splitIndex,
          options.storePrefix);
  return EndOfRun();
}

SaveEnd SavePipeline::SaveChosenItems(const std::vector<ChosenItem>& items, const std::string& destination,
                                      OutputKind kind) {
  filter_ = &noFilter_;
  chosen_ = &items;
  run_.outputKind = kind;
  run_.saveAsCode = RouteOf(kind).saveAsCode;
  RunSave(RouteOf(kind).usesEngine, false, false, destination, 0, 0, "");
  chosen_ = nullptr;
  SaveEnd end = EndOfRun();
  run_.saveAsCode = 3;
  run_.totalInFolder = 0;
  return end;
}

void SavePipeline::ResetRun() {
  // The kind and its format code are set for the run before it starts.
  const OutputKind kind = run_.outputKind;
  const std::uint32_t saveAsCode = run_.saveAsCode;
  run_ = SaveRunState();
  run_.outputKind = kind;
  run_.saveAsCode = saveAsCode;
  itemsWritten_ = 0;
  walkFailed_ = false;
  failure_.clear();
}

SaveEnd SavePipeline::EndOfRun() {
  SaveEnd end;
  end.cancelled = IsCancelled();
  end.failed = walkFailed_;
  end.message = failure_;
  end.destination = run_.destinationPath;
  end.itemsWritten = itemsWritten_;
  return end;
}

void SavePipeline::RunSave(bool usesEngine, bool singleStore, bool skipTopFolderChoice,
                           const std::string& destinationPath, std::uint32_t oeParentFolderId, int splitIndex,
                           const std::string& storePrefix) {
  ResetRun();
  const OutputKind kind = run_.outputKind;
  run_.targetMode = kind == kOutputServer ? 4 : 0;
  run_.usesEngine = usesEngine;
  run_.singleStore = singleStore;
  run_.skipTopFolderChoice = skipTopFolderChoice;
  run_.destinationPath = destinationPath;
  if (!run_.destinationPath.empty() && run_.destinationPath.back() != '/') run_.destinationPath += '/';
  run_.oeParentFolderId = oeParentFolderId;
  run_.splitIndex = splitIndex;
  run_.storePrefix = storePrefix;

  if (usesEngine || singleStore || (kind != kOutputEml && kind != kOutputMbox)) {
    // The engine's outputs and the single-store writers come with their own work.
    walkFailed_ = true;
    failure_ = "This output is not available yet.";
    return;
  }
  if (chosen_ != nullptr) {
    run_.totalInFolder = static_cast<std::uint32_t>(chosen_->size());
    for (const std::string& folder : DistinctFolders(*chosen_)) {
      if (!PrepareFolderOutput(folder, "")) {
        walkFailed_ = true;
        return;
      }
    }
    WalkChosenItems();
  } else {
    WalkCheckedFolders();
  }
  mbox_.Close();
}

std::string SavePipeline::RelativePath(TreeItem folder, std::vector<std::string>* names) const {
  const std::string root = AsciiUpper(profile_.GetText(kFolderRootKey, ""));
  std::vector<std::string> parts{tree_.Text(folder)};
  for (TreeItem at = tree_.Parent(folder); at != 0 && at != storeItem_; at = tree_.Parent(at)) {
    const std::string name = tree_.Text(at);
    if (name.empty()) continue;
    const std::string upper = AsciiUpper(name);
    if (IsTopFolder(upper) || (!root.empty() && upper == root)) break;
    parts.insert(parts.begin(), name);
  }
  if (names != nullptr) *names = parts;
  std::string path;
  for (const std::string& p : parts) path += SafePathComponent(p) + "/";
  return path;
}

bool SavePipeline::PrepareFolderOutput(const std::string& relPath, const std::string& folderName) {
  const std::string full = run_.destinationPath + relPath;
  if (CharacterCount(full) > kMaxOutputPath) {
    failure_ =
        "The provided path is too long to create\nPlease provide different destination path\n" + run_.destinationPath;
    return false;
  }
  std::error_code ec;
  fs::create_directories(full, ec);
  if (!fs::is_directory(full, ec)) {
    failure_ = "Unable to create " + full;
    return false;
  }
  run_.currentRelFolder = relPath;
  if (run_.outputKind == kOutputMbox) {
    mbox_.Close();
    // The folder's own name is used as it stands; one a file name cannot
    // hold fails here, as it would anywhere.
    const bool usable = folderName.find('/') == std::string::npos && folderName.find('\0') == std::string::npos;
    if (!usable || !mbox_.Open(full + folderName + ".MBOX")) {
      failure_ = "Unable to create " + full + folderName + ".MBOX";
      return false;
    }
  }
  return true;
}

void SavePipeline::WalkCheckedFolders() {
  // In the order of the folder list, not of the tree.
  for (std::size_t i = 0; i < state_.folders.size(); ++i) {
    if (IsCancelled()) return;
    const FolderRecord& folder = state_.folders[i];
    if (folder.treeItem == kNoTreeItem || folder.treeItem == storeItem_ || !tree_.IsChecked(folder.treeItem)) continue;
    const std::string label = tree_.Text(folder.treeItem);
    if (!FolderAllowed(filter_, label)) continue;
    const std::string relPath = RelativePath(folder.treeItem);
    reader_.Sink().SetStepLine("Saving Folder : " + relPath);
    if (!PrepareFolderOutput(relPath, label)) {
      walkFailed_ = true;
      return;
    }
    run_.fileIndex = 0;
    run_.totalInFolder = folder.itemCount;
    WalkFolderItems(i);
  }
}

void SavePipeline::WalkChosenItems() {
  // Quadratic in the number of items; lists are short, and inside a folder
  // the items keep the order they were chosen in.
  run_.selectedDone = 0;
  for (const std::string& folder : DistinctFolders(*chosen_)) {
    if (IsCancelled()) return;
    run_.fileIndex = 0;
    for (const ChosenItem& item : *chosen_) {
      if (item.folderPath != folder) continue;
      if (IsCancelled()) return;
      run_.currentRelFolder = folder;
      SaveOneItem({item.dataBlock, item.nodeId, item.subnodeBlock, false});
    }
  }
}

void SavePipeline::WalkFolderItems(std::size_t folderRow) {
  run_.saveDeletedMode = static_cast<std::uint32_t>(profile_.GetInt(kSaveDeletedKey, 1));
  ForEachFolderItem(reader_, state_, state_.folders[folderRow].nodeId, run_.saveDeletedMode,
                    [&](const FolderItem& item) { SaveOneItem(item); });
}

void SavePipeline::SaveOneItem(const FolderItem& item) {
  if (IsCancelled() || !convert_) return;
  if ((run_.saveDeletedMode == 2 && item.isLost) || (run_.saveDeletedMode == 3 && !item.isLost)) return;
  const ConvertedItem converted = convert_(item, filter_);
  // Filtered, or nothing to show for it: never counted.
  if (converted.fromText.empty() && converted.subject.empty() && converted.deliveryTime == 0) return;
  if (converted.emlPath.empty()) return;
  const bool chosenRun = chosen_ != nullptr;
  if (chosenRun) ++run_.selectedDone;
  ++run_.fileIndex;
  // The subject goes to the running line with the count; the folder's own
  // line stays.
  const std::uint32_t count = chosenRun ? run_.selectedDone : run_.fileIndex;
  char text[64] = "";
  if (run_.totalInFolder != 0 && run_.fileIndex < run_.totalInFolder) {
    std::snprintf(text, sizeof text, "Saving %u of %u", count, run_.totalInFolder);
    reader_.Sink().SetProgress(static_cast<int>(std::uint64_t{count} * 100 / run_.totalInFolder));
  } else if (!chosenRun) {
    // Items past the folder's own count: told apart by the text alone.
    std::snprintf(text, sizeof text, "Saving Deleted Item(s) %u ", run_.fileIndex);
  }
  reader_.Sink().SetStatusLine(std::string(text) + "  " + (chosenRun ? run_.currentRelFolder : converted.subject));
  SaveFromEml(converted);
}

void SavePipeline::SaveFromEml(const ConvertedItem& item) {
  if ((item.type == "JOURNAL" || item.type == "TASK" || item.type == "CALENDER" || item.type == "CONTACT") &&
      rebuild_) {
    rebuild_(item);
  }
  std::error_code ec;
  if (!fs::exists(item.emlPath, ec)) return;  // the number stays used: a gap tells which item failed
  if (run_.outputKind == kOutputMbox) {
    mbox_.AppendToMbox(item.emlPath);
    ++itemsWritten_;
    return;
  }
  const std::string target =
      run_.destinationPath + run_.currentRelFolder + std::to_string(run_.fileIndex) + ".eml";
  if (fs::copy_file(item.emlPath, target, fs::copy_options::overwrite_existing, ec)) ++itemsWritten_;
}

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
        "Data has been saved in Outlook Express. Open the destination Outlook Express folder to see the recovered "
        "items.";
  }
  return end;
}

}  // namespace marrow
