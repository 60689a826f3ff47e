#include "saving/save_pipeline.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "saving/output_paths.h"
#include "saving/save_all_stores.h"
#include "saving/save_filter.h"
#include "store/recovery_state.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// The folder paths of chosen items, each once, in first-seen order.
std::vector<std::string> DistinctFolders(const std::vector<ChosenItem>& items) {
  std::vector<std::string> folders;
  for (const ChosenItem& item : items) {
    if (std::find(folders.begin(), folders.end(), item.folderPath) == folders.end()) folders.push_back(item.folderPath);
  }
  return folders;
}

}  // namespace

SavePipeline::SavePipeline(StoreReader& reader, const RecoveryState& state, TreeSink& tree, TreeItem storeItem,
                           const ProfileStore& profile)
    : reader_(reader), state_(state), tree_(tree), storeItem_(storeItem), profile_(profile) {}

void SavePipeline::SetConversion(ItemConversion convert) {
  convert_ = std::move(convert);
}

bool SavePipeline::IsCancelled() {
  return reader_.Cancelled();
}

bool SavePipeline::HasCheckedFolder() {
  return marrow::HasCheckedFolder(tree_, storeItem_, reader_.SourcePath());
}

SaveEnd SavePipeline::SaveStore(const SaveOptions& options) {
  filter_ = &options.filter;
  chosen_ = nullptr;
  const OutputRoute route = RouteOf(options.kind);
  std::string destination = options.destinationPath;
  if (!destination.empty() && destination.back() != '/') destination += '/';
  if (options.kind != kOutputServer && !route.singleStore)
    destination = StoreOutputFolder(destination, reader_.SourcePath());
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

  const MakeItemWriter makeWriter = RouteOf(kind).makeWriter;
  if (givenWriter_ == nullptr && makeWriter != nullptr) routeWriter_ = makeWriter();
  writer_ = givenWriter_ != nullptr ? givenWriter_ : routeWriter_.get();
  if (usesEngine || singleStore || writer_ == nullptr) {
    // The engine's outputs and the single-store writers come with their own work.
    walkFailed_ = true;
    failure_ = "This output is not available yet.";
    writer_ = nullptr;
    routeWriter_.reset();
    return;
  }
  if (chosen_ != nullptr) {
    run_.totalInFolder = static_cast<std::uint32_t>(chosen_->size());
    for (const std::string& folder : DistinctFolders(*chosen_)) {
      if (!PrepareFolderOutput(folder, "")) {
        walkFailed_ = true;
        break;
      }
    }
    if (!walkFailed_) WalkChosenItems();
  } else {
    WalkCheckedFolders();
  }
  writer_->EndRun();
  writer_ = nullptr;
  routeWriter_.reset();
}

std::string SavePipeline::RelativePath(TreeItem folder, std::vector<std::string>* names) const {
  return RelativeFolderPath(tree_, storeItem_, folder, profile_.GetText(kFolderRootKey, ""), names);
}

bool SavePipeline::PrepareFolderOutput(const std::string& relPath, const std::string& folderName) {
  const std::string full = run_.destinationPath + relPath;
  if (OutputPathTooLong(full)) {
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
  return writer_ == nullptr || writer_->BeginFolder(full, folderName, failure_);
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
  if (IsCancelled() || !convert_ || writer_ == nullptr) return;
  if ((run_.saveDeletedMode == 2 && item.isLost) || (run_.saveDeletedMode == 3 && !item.isLost)) return;
  const ConvertedItem converted = convert_(item, filter_, writer_->Wants());
  // Filtered, or nothing to show for it: never counted.
  if (converted.fromText.empty() && converted.header.subject.empty() && converted.header.deliveryTime == 0) return;
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
  reader_.Sink().SetStatusLine(std::string(text) + "  " +
                               (chosenRun ? run_.currentRelFolder : converted.header.subject));
  WriteItem(converted);
}

void SavePipeline::WriteItem(const ConvertedItem& item) {
  std::error_code ec;
  if (!fs::exists(item.emlPath, ec)) return;  // the number stays used: a gap tells which item failed
  const ItemPlace place{run_.destinationPath + run_.currentRelFolder, run_.currentRelFolder, run_.fileIndex};
  if (writer_->WriteItem(item, place)) ++itemsWritten_;
}

}  // namespace marrow
