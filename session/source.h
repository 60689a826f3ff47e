// One source of a session: a store file listed in opening order, pending
// until its recovery has run, then its reader, its folder tree and its
// folders by path.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "store/folder_record.h"
#include "store/memory_tree.h"
#include "store/progress_sink.h"
#include "store/recovery_state.h"
#include "store/start_scan.h"

namespace marrow {

class StoreReader;
struct SnapshotHeader;

// How the recovery of a source ended.
struct RecoveryOutcome {
  bool opened = false;
  bool cancelled = false;  // stopped by the user; the tree so far stands
  std::string error;       // "<file>: <why>" when the source could not be opened
};

// A folder of the tree and its path below the source: names joined by "/".
struct FolderPath {
  std::size_t row;  // of the recovered folder list
  std::string path;
};

class Source {
 public:
  // A store file to scan in `mode` (RecoveryMode).
  Source(std::string path, int mode);
  // The store file a snapshot names, to be reloaded from it.
  Source(const SnapshotHeader& header, const std::string& snapshotPath);
  ~Source();
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  const std::string& Path() const { return request_.sourcePath; }
  bool IsParsed() const { return parsed_; }
  // Runs the six-step recovery, or reloads the snapshot, once; later calls
  // give the first outcome. Afterwards the source and all below it are
  // checked, as after a scan in the application.
  RecoveryOutcome Recover(ProgressSink& progress);

  // --- Once parsed ----------------------------------------------------------
  StoreReader& Reader() { return *reader_; }
  const RecoveryState& State() const { return state_; }
  MemoryTree& Tree() { return tree_; }
  TreeItem Root() const { return root_; }
  // The folders in the order the tree shows them.
  std::vector<FolderPath> Folders() const;
  const FolderRecord& Folder(std::size_t row) const;
  // The row of the folder at `path`; -1 when there is none.
  long FindFolder(const std::string& path) const;
  // Checks only the folders at `paths` and everything below them; true for
  // each path the tree has.
  std::vector<bool> CheckOnly(const std::vector<std::string>& paths);
  // Keeps what the scan found in a snapshot file (silent, as the store's writer is).
  void SaveSnapshot(const std::string& path);

 private:
  ScanRequest request_;
  std::string tempFolder_;
  bool parsed_ = false;
  RecoveryOutcome outcome_;
  std::unique_ptr<StoreReader> reader_;
  RecoveryState state_;
  MemoryTree tree_;
  TreeItem root_ = 0;
};

}  // namespace marrow
