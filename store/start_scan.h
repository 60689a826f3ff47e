// Opening one source and running the recovery in the chosen mode, with the
// retry ladder over the store forms. The GUI wraps this in its own windows.
#pragma once

#include <string>

#include "store/folder_tree.h"

namespace marrow {

class StoreReader;
struct RecoveryState;

enum RecoveryMode { kQuickScan = 0, kAdvanceScan = 1, kRawScan = 2 };

struct ScanRequest {
  std::string sourcePath;
  int mode = kQuickScan;
  bool fromSnapshot = false;
  std::string snapshotPath;
  // With `fromSnapshot`: the form and flags the snapshot header gave.
  int snapshotAnsi = 0;
  bool snapshotLargePage = false;
  bool snapshotRaw = false;
};

struct SnapshotHeader;

// The run that reloads `snapshotPath`, as its header asks: its source, its
// form and flags, and a large-page store reloaded as an advanced run.
ScanRequest SnapshotRequest(const SnapshotHeader& header, const std::string& snapshotPath);

struct ScanOutcome {
  bool opened = false;
  int runs = 0;           // runs of the recovery driver
  std::string errorText;  // what to show when the source could not be opened
};

// Runs the recovery for `request` into `root`. A quick scan whose tree stays
// empty tries the other form of the header, then each of the four forms in
// turn; an advanced or raw scan tries the other 32/64-bit form once.
// The raw mode is set in `state` from the request.
ScanOutcome StartScan(StoreReader& reader, RecoveryState& state, TreeSink& tree, TreeItem root,
                      const ScanRequest& request);

}  // namespace marrow
