// The save of one store: checked folders walked in folder-list order, each
// given its relative path and its output, each item converted and handed to
// the output's writer under a number of its folder.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "saving/item_writer.h"
#include "saving/output_route.h"
#include "saving/profile_store.h"
#include "saving/save_options.h"
#include "store/folder_items.h"
#include "store/folder_tree.h"
#include "store/progress_sink.h"

namespace marrow {

class StoreReader;
struct RecoveryState;

// Converts one item to its MIME file and header lines (and what `wants`
// asks for besides); the filter of the run is the caller's to apply (a
// refused item comes back with no sender, subject or time).
using ItemConversion =
    std::function<ConvertedItem(const FolderItem& item, const SaveFilter* filter, const ItemWants& wants)>;

// The end of a store's run, for the caller to show.
struct SaveEnd {
  bool cancelled = false;
  bool failed = false;      // the walk ended early (an output could not be made)
  std::string message;      // the text of a failure
  std::string destination;  // where the store's output went
  std::uint32_t itemsWritten = 0;
};

// An item chosen in a list, to be saved under its folder's path.
struct ChosenItem {
  std::string folderPath;  // relative to the destination, "/" after each name
  std::uint64_t dataBlock = 0;
  std::uint64_t nodeId = 0;
  std::uint64_t subnodeBlock = 0;
};

// The state of one run, reset at its start.
struct SaveRunState {
  std::uint32_t targetMode = 0;  // 0 a local target, 4 the server route
  bool usesEngine = false;
  bool singleStore = false;
  bool skipTopFolderChoice = false;  // carried; the top folders are always left out
  std::string destinationPath;       // ends in "/"
  std::uint32_t oeParentFolderId = 0;
  int splitIndex = 0;
  std::string storePrefix;
  std::uint32_t saveAsCode = 3;
  OutputKind outputKind = kOutputNone;
  std::uint32_t fileIndex = 0;      // items so far in this folder; names the files
  std::uint32_t selectedDone = 0;   // items so far in a run over chosen items
  std::uint32_t totalInFolder = 0;  // the tree's count for the folder being saved
  std::string currentRelFolder;     // ends in "/"
  std::uint32_t saveDeletedMode = 1;
};

class SavePipeline {
 public:
  // `state` is what the recovery of `reader` found: the folders to walk.
  SavePipeline(StoreReader& reader, const RecoveryState& state, TreeSink& tree, TreeItem storeItem,
               const ProfileStore& profile);

  void SetConversion(ItemConversion convert);
  // A writer of the caller's for the runs that follow, in place of the one
  // the route table gives; nullptr goes back to the route's. Not owned.
  void UseWriter(ItemWriter* writer) { givenWriter_ = writer; }

  // Saves the store's checked folders under `options.destinationPath`, in a
  // folder named after the source file (numbered when that name is taken).
  SaveEnd SaveStore(const SaveOptions& options);
  // Saves items chosen in a list, each under `destination` and its folder
  // path, numbered per folder in the order chosen. No filter applies.
  SaveEnd SaveChosenItems(const std::vector<ChosenItem>& items, const std::string& destination, OutputKind kind);

  // --- Steps, public for the GUI and the tests ----------------------------
  // One run to `destinationPath`, by the route the pair names and the writer
  // of the run's output kind.
  void RunSave(bool usesEngine, bool singleStore, bool skipTopFolderChoice, const std::string& destinationPath,
               std::uint32_t oeParentFolderId, int splitIndex, const std::string& storePrefix);
  // The folder's path below the store, top folders left out, "/" after each name.
  std::string RelativePath(TreeItem folder, std::vector<std::string>* names = nullptr) const;
  // Makes the folder's output directory and opens it in the writer.
  bool PrepareFolderOutput(const std::string& relPath, const std::string& folderName);
  void WalkCheckedFolders();
  void WalkChosenItems();
  void WalkFolderItems(std::size_t folderRow);
  void SaveOneItem(const FolderItem& item);
  bool IsCancelled();
  // Whether the store has a checked folder to save (see HasCheckedFolder in
  // save_all_stores.h).
  bool HasCheckedFolder();

  const SaveRunState& Run() const { return run_; }
  std::uint32_t FileIndex() const { return run_.fileIndex; }
  const std::string& Destination() const { return run_.destinationPath; }
  StoreReader& Reader() { return reader_; }

 private:
  void ResetRun();
  SaveEnd EndOfRun();
  void WriteItem(const ConvertedItem& item);

  StoreReader& reader_;
  const RecoveryState& state_;
  TreeSink& tree_;
  TreeItem storeItem_;
  const ProfileStore& profile_;
  ItemConversion convert_;

  SaveFilter noFilter_;
  const SaveFilter* filter_ = &noFilter_;
  const std::vector<ChosenItem>* chosen_ = nullptr;  // set in a run over chosen items
  SaveRunState run_;
  std::uint32_t itemsWritten_ = 0;
  bool walkFailed_ = false;
  std::string failure_;
  ItemWriter* givenWriter_ = nullptr;
  std::unique_ptr<ItemWriter> routeWriter_;
  ItemWriter* writer_ = nullptr;  // the run's; none outside a run
};

}  // namespace marrow
