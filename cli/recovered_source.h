// A source recovered for a command: the scan (or a snapshot reload), its
// tree, and the folders by path.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/stderr_progress.h"
#include "store/memory_tree.h"
#include "store/recovery_state.h"
#include "store/store_reader.h"

namespace marrow::cli {

struct SourceArgs {
  std::string path;
  std::string snapshot;  // reload this instead of scanning
  int mode = 0;          // quick, advance, raw
};

// "quick", "advance" or "raw"; false for anything else.
bool ParseMode(const std::string& value, int& mode);

// How a command's argument at `i` was taken by TakeSourceOption.
enum class SourceOption { kNotMine, kTaken, kBad };
// Takes "--mode M" or "--snapshot F" at args[i], moving `i` onto its value.
SourceOption TakeSourceOption(const std::vector<std::string>& args, std::size_t& i, SourceArgs& source);

// A folder of the tree and its path below the source: names joined by "/".
struct FolderPath {
  std::size_t row;
  std::string path;
};

class RecoveredSource {
 public:
  RecoveredSource();
  ~RecoveredSource();

  // Runs the recovery; prints what went wrong and returns false when the
  // source (or the snapshot) cannot be used. Ctrl-C stops the running step.
  bool Run(const SourceArgs& args);

  StoreReader& Reader() { return *reader_; }
  // What the recovery found: the folders, by row.
  const RecoveryState& State() const { return state_; }
  MemoryTree& Tree() { return tree_; }
  TreeItem Root() const { return root_; }
  StderrProgress& Progress() { return progress_; }

  // The folders in the order the tree shows them.
  std::vector<FolderPath> Folders() const;
  // The row of the folder at `path`; -1 when there is none.
  long FindFolder(const std::string& path) const;

 private:
  StderrProgress progress_;
  std::unique_ptr<StoreReader> reader_;
  RecoveryState state_;
  MemoryTree tree_;
  TreeItem root_ = 0;
};

}  // namespace marrow::cli
