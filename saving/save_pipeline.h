// The save of one store: checked folders walked in folder-list order, each
// given its relative path and its output, each item converted and written
// under a number of its folder.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "saving/mbox_writer.h"
#include "saving/profile_store.h"
#include "saving/save_options.h"
#include "store/folder_items.h"
#include "store/folder_tree.h"
#include "store/progress_sink.h"

namespace marrow {

class StoreReader;

// What the item reader gives back for one item of a save.
struct ConvertedItem {
  std::string emlPath;  // empty when no file was made
  std::string type;     // "EMAIL", "JOURNAL", "TASK", "CALENDER", "CONTACT"
  std::string fromText;
  std::string subject;
  std::uint64_t deliveryTime = 0;
};

// Converts one item to a MIME file; the filter of the run is the caller's
// to apply (a refused item comes back with no sender, subject or time).
using ItemConversion = std::function<ConvertedItem(const FolderItem& item, const SaveFilter* filter)>;
// Rebuilds the MIME file of a non-mail item in place, before it is written.
using NonMailRebuild = std::function<void(const ConvertedItem& item)>;

// The end of a run, for the caller to show.
struct SaveEnd {
  bool cancelled = false;
  bool failed = false;      // the walk ended early (an output could not be made)
  std::string message;      // the text of a failure
  std::string destination;  // where the store's output went
  std::uint32_t itemsWritten = 0;
};

class SavePipeline {
 public:
  SavePipeline(StoreReader& reader, TreeSink& tree, TreeItem storeItem, const ProfileStore& profile);

  void SetConversion(ItemConversion convert, NonMailRebuild rebuild = {});

  // Saves the store's checked folders under `options.destinationPath`, in a
  // folder named after the source file (numbered when that name is taken).
  SaveEnd SaveStore(const SaveOptions& options);

  // --- Steps, public for the GUI and the tests ----------------------------
  // The folder's path below the store, top folders left out, "/" after each name.
  std::string RelativePath(TreeItem folder, std::vector<std::string>* names = nullptr) const;
  // Makes the folder's output directory (and, for MBOX, its file).
  bool PrepareFolderOutput(const std::string& relPath, const std::string& folderName);
  void WalkCheckedFolders();
  void WalkFolderItems(std::size_t folderRow);
  void SaveOneItem(const FolderItem& item);
  void SaveFromEml(const ConvertedItem& item);

  std::uint32_t FileIndex() const { return fileIndex_; }
  const std::string& Destination() const { return destination_; }

 private:
  bool Cancelled();

  StoreReader& reader_;
  TreeSink& tree_;
  TreeItem storeItem_;
  const ProfileStore& profile_;
  ItemConversion convert_;
  NonMailRebuild rebuild_;

  const SaveOptions* options_ = nullptr;
  std::string destination_;     // ends in "/"
  std::string currentRelFolder_;  // ends in "/"
  std::uint32_t fileIndex_ = 0;
  std::uint32_t totalInFolder_ = 0;
  std::uint32_t saveDeletedMode_ = 1;
  std::uint32_t itemsWritten_ = 0;
  bool walkFailed_ = false;
  std::string failure_;
  MboxWriter mbox_;
};

// A folder or file name made safe for one path component: the characters a
// file name cannot hold become "_", and "." or ".." become "_".
std::string SafePathComponent(const std::string& name);

}  // namespace marrow
