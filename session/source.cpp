#include "session/source.h"

#include <unordered_map>

#include "store/snapshot.h"
#include "store/store_reader.h"
#include "store/temp_file.h"

namespace marrow {
namespace {
// The source's own item, as the application shows one per file.
constexpr int kSourceImage = 9;
}  // namespace

Source::Source(std::string path, int mode) : tempFolder_(DefaultTempFolder()) {
  request_.sourcePath = std::move(path);
  request_.mode = mode;
}

Source::Source(const SnapshotHeader& header, const std::string& snapshotPath)
    : request_(SnapshotRequest(header, snapshotPath)), tempFolder_(header.tempFolder) {}

Source::~Source() = default;

RecoveryOutcome Source::Recover(ProgressSink& progress) {
  if (parsed_) return outcome_;
  parsed_ = true;
  reader_ = std::make_unique<StoreReader>(tempFolder_);
  reader_->SetProgressSink(&progress);
  root_ = tree_.AddRoot(request_.sourcePath, kSourceImage);
  const ScanOutcome scan = StartScan(*reader_, state_, tree_, root_, request_);
  outcome_.opened = scan.opened;
  if (!scan.opened) {
    outcome_.error = request_.sourcePath + ": " + scan.errorText;
    return outcome_;
  }
  outcome_.cancelled = progress.IsCancelled();
  tree_.SetCheckedBelow(root_, true);
  return outcome_;
}

std::vector<FolderPath> Source::Folders() const {
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

const FolderRecord& Source::Folder(std::size_t row) const {
  return state_.folders[row];
}

long Source::FindFolder(const std::string& path) const {
  for (const FolderPath& f : Folders()) {
    if (f.path == path) return static_cast<long>(f.row);
  }
  return -1;
}

std::vector<bool> Source::CheckOnly(const std::vector<std::string>& paths) {
  std::vector<bool> found(paths.size(), false);
  tree_.SetCheckedBelow(root_, false);
  const std::vector<FolderPath> folders = Folders();
  for (std::size_t k = 0; k < paths.size(); ++k) {
    for (const FolderPath& f : folders) {
      if (f.path != paths[k]) continue;
      found[k] = true;
      tree_.SetCheckedBelow(Folder(f.row).treeItem, true);
      break;
    }
  }
  return found;
}

void Source::SaveSnapshot(const std::string& path) {
  WriteSnapshot(*reader_, state_, path);
}

}  // namespace marrow
