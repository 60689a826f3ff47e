#include "store/start_scan.h"

#include "store/recovery.h"
#include "store/snapshot.h"
#include "store/store_reader.h"

namespace marrow {

ScanRequest SnapshotRequest(const SnapshotHeader& header, const std::string& snapshotPath) {
  ScanRequest request;
  request.sourcePath = header.sourcePath;
  request.fromSnapshot = true;
  request.snapshotPath = snapshotPath;
  request.snapshotAnsi = header.isAnsi;
  request.snapshotLargePage = header.isLargePage;
  request.snapshotRaw = header.rawMode;
  // The page-size flag doubles as the mode: a large-page store reloads
  // with the retry flag set.
  request.mode = header.isLargePage ? kAdvanceScan : kQuickScan;
  return request;
}

ScanOutcome StartScan(StoreReader& reader, RecoveryState& state, TreeSink& tree, TreeItem root,
                      const ScanRequest& request) {
  ScanOutcome outcome;
  if (request.mode < kQuickScan || request.mode > kRawScan) return outcome;
  auto run = [&](bool retryPass, const std::string& snapshot = {}) {
    ++outcome.runs;
    RecoverStore(reader, state, tree, root, retryPass, snapshot);
    return tree.FirstChild(root) != 0;
  };
  if (!reader.OpenStore(request.sourcePath)) {
    outcome.errorText = reader.LastError();
    return outcome;
  }
  outcome.opened = true;

  if (request.fromSnapshot) {
    state.rawMode = request.snapshotRaw;
    reader.SetAnsi(request.snapshotAnsi);
    reader.SetLargePage(request.snapshotLargePage);
    run(request.mode != kQuickScan, request.snapshotPath);
    return outcome;
  }
  if (request.mode != kQuickScan) {
    state.rawMode = request.mode == kRawScan;
    if (!run(true)) {
      reader.SetAnsi(reader.IsAnsi() ? 0 : 1);
      run(true);
    }
    return outcome;
  }

  if (run(false)) return outcome;
  const struct {
    int isAnsi;
    bool isLargePage;
  } kLadder[] = {{0, false}, {1, false}, {0, true}, {1, true}};
  reader.SetAnsi(reader.IsAnsi() ? 0 : 1);
  if (run(true)) return outcome;
  for (const auto& form : kLadder) {
    reader.SetAnsi(form.isAnsi);
    reader.SetLargePage(form.isLargePage);
    if (run(true)) break;
  }
  return outcome;
}

}  // namespace marrow
