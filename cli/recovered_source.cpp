#include "cli/recovered_source.h"

#include <cstdio>
#include <unordered_map>

#include "store/snapshot.h"
#include "store/start_scan.h"
#include "store/temp_file.h"

namespace marrow::cli {
namespace {
// The source's own item, as the application shows one per file.
constexpr int kSourceImage = 9;
}  // namespace

bool ParseMode(const std::string& value, int& mode) {
  if (value == "quick") {
    mode = kQuickScan;
  } else if (value == "advance") {
    mode = kAdvanceScan;
  } else if (value == "raw") {
    mode = kRawScan;
  } else {
    return false;
  }
  return true;
}

SourceOption TakeSourceOption(const std::vector<std::string>& args, std::size_t& i, SourceArgs& source) {
  const std::string& a = args[i];
  if ((a != "--mode" && a != "--snapshot") || i + 1 >= args.size()) return SourceOption::kNotMine;
  const std::string& value = args[++i];
  if (a == "--snapshot") {
    source.snapshot = value;
    return SourceOption::kTaken;
  }
  return ParseMode(value, source.mode) ? SourceOption::kTaken : SourceOption::kBad;
}

RecoveredSource::RecoveredSource() = default;
RecoveredSource::~RecoveredSource() = default;

bool RecoveredSource::Run(const SourceArgs& args) {
  ScanRequest request;
  request.sourcePath = args.path;
  request.mode = args.mode;
  std::string tempFolder = DefaultTempFolder();
  if (!args.snapshot.empty()) {
    SnapshotHeader header;
    std::string error;
    if (!ReadSnapshotHeader(args.snapshot, header, error)) {
      std::fprintf(stderr, "marrow-cli: %s\n", error.c_str());
      return false;
    }
    if (!args.path.empty() && args.path != header.sourcePath) {
      std::fprintf(stderr, "marrow-cli: the snapshot was taken of %s; reading that file\n",
                   header.sourcePath.c_str());
    }
    request = SnapshotRequest(header, args.snapshot);
    tempFolder = header.tempFolder;
  }
  reader_ = std::make_unique<StoreReader>(tempFolder);
  reader_->SetProgressSink(&progress_);
  root_ = tree_.AddRoot(request.sourcePath, kSourceImage);
  const ScanOutcome outcome = StartScan(*reader_, state_, tree_, root_, request);
  if (!outcome.opened) {
    std::fprintf(stderr, "marrow-cli: %s: %s\n", request.sourcePath.c_str(), outcome.errorText.c_str());
    return false;
  }
  if (progress_.WasCancelled()) {
    std::fprintf(stderr, "Stopped by the user; the tree so far follows.\n");
    progress_.ClearCancel();
  }
  // As after a scan in the application: the source and all below it checked.
  tree_.SetCheckedBelow(root_, true);
  return true;
}

std::vector<FolderPath> RecoveredSource::Folders() const {
  std::unordered_map<TreeItem, std::size_t> rowOf;
  for (std::size_t i = 0; i < state_.folders.size(); ++i) rowOf[state_.folders[i].treeItem] = i;
  std::vector<FolderPath> out;
  std::vector<std::string> names;
  tree_.ForEachBelow(root_, [&](TreeItem item, int depth) {
    names.resize(depth - 1);
    names.push_back(tree_.Find(item)->text);
    auto at = rowOf.find(item);
    if (at == rowOf.end()) return;
    std::string path;
    for (const std::string& n : names) path += (path.empty() ? "" : "/") + n;
    out.push_back({at->second, path});
  });
  return out;
}

long RecoveredSource::FindFolder(const std::string& path) const {
  for (const FolderPath& f : Folders()) {
    if (f.path == path) return static_cast<long>(f.row);
  }
  return -1;
}

}  // namespace marrow::cli
