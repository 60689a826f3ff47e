// marrow-cli tree FILE [--mode quick|advance|raw] [--json] [--save-snapshot F] [--snapshot F]
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "cli/commands.h"
#include "cli/json_writer.h"
#include "cli/stderr_progress.h"
#include "store/folder_items.h"
#include "store/memory_tree.h"
#include "store/snapshot.h"
#include "store/start_scan.h"
#include "store/store_reader.h"
#include "store/temp_file.h"

namespace marrow::cli {
namespace {

constexpr const char* kUsage =
    "usage: marrow-cli tree FILE [--mode quick|advance|raw] [--json] [--save-snapshot F] [--snapshot F]\n";
// The source's own item, as the application shows one per file.
constexpr int kSourceImage = 9;
// The item list shows index messages and lost rows alike.
constexpr std::uint32_t kListDeletedToo = 1;

struct TreeLine {
  std::size_t row;
  std::string path;
  std::uint64_t items;
};

// The folders in the order the tree shows them, with their paths below the source item.
std::vector<TreeLine> CollectLines(StoreReader& reader, const MemoryTree& tree, TreeItem root) {
  std::unordered_map<TreeItem, std::size_t> rowOf;
  for (std::size_t i = 0; i < reader.folders.size(); ++i) rowOf[reader.folders[i].treeItem] = i;
  std::vector<TreeLine> lines;
  std::vector<std::string> names;
  tree.ForEachBelow(root, [&](TreeItem item, int depth) {
    names.resize(depth - 1);
    names.push_back(tree.Find(item)->text);
    auto at = rowOf.find(item);
    if (at == rowOf.end()) return;
    std::string path;
    for (const std::string& n : names) path += (path.empty() ? "" : "/") + n;
    lines.push_back({at->second, path, 0});
  });
  for (TreeLine& line : lines) {
    ForEachFolderItem(reader, reader.folders[line.row].nodeId, kListDeletedToo,
                      [&](const FolderItem&) { ++line.items; });
  }
  return lines;
}

void PrintJson(StoreReader& reader, const std::vector<TreeLine>& lines) {
  JsonWriter w;
  w.BeginObject();
  w.Key("folders");
  w.BeginArray();
  for (const TreeLine& line : lines) {
    const FolderRecord& f = reader.folders[line.row];
    w.BeginObject();
    w.Member("path", line.path);
    w.Member("nodeId", f.nodeId);
    w.Member("parentId", f.parentId);
    w.Member("name", f.name);
    w.Member("containerClass", f.containerClass);
    w.Member("itemCount", static_cast<std::uint64_t>(f.itemCount));
    w.Member("isLost", f.isLost);
    w.Member("items", line.items);
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  std::printf("%s\n", w.Text().c_str());
}

void PrintText(StoreReader& reader, const std::vector<TreeLine>& lines) {
  std::printf("%-8s %-8s %-5s %-20s %s\n", "Items", "Count", "Lost", "Class", "Path");
  for (const TreeLine& line : lines) {
    const FolderRecord& f = reader.folders[line.row];
    std::printf("%-8llu %-8u %-5s %-20s %s\n", static_cast<unsigned long long>(line.items), f.itemCount,
                f.isLost ? "lost" : "", f.containerClass.c_str(), line.path.c_str());
  }
}

}  // namespace

int RunTree(const std::vector<std::string>& args) {
  std::string path, saveTo, snapshot;
  bool json = false;
  int mode = kQuickScan;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool hasValue = i + 1 < args.size();
    if (a == "--json") {
      json = true;
    } else if (a == "--mode" && hasValue) {
      const std::string& m = args[++i];
      if (m == "quick") {
        mode = kQuickScan;
      } else if (m == "advance") {
        mode = kAdvanceScan;
      } else if (m == "raw") {
        mode = kRawScan;
      } else {
        std::fprintf(stderr, "%s", kUsage);
        return 2;
      }
    } else if (a == "--save-snapshot" && hasValue) {
      saveTo = args[++i];
    } else if (a == "--snapshot" && hasValue) {
      snapshot = args[++i];
    } else if (path.empty() && !a.empty() && a[0] != '-') {
      path = a;
    } else {
      std::fprintf(stderr, "%s", kUsage);
      return 2;
    }
  }
  if (path.empty() && snapshot.empty()) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }

  ScanRequest request;
  request.sourcePath = path;
  request.mode = mode;
  std::string tempFolder = DefaultTempFolder();
  if (!snapshot.empty()) {
    SnapshotHeader header;
    std::string error;
    if (!ReadSnapshotHeader(snapshot, header, error)) {
      std::fprintf(stderr, "marrow-cli: %s\n", error.c_str());
      return 1;
    }
    if (!path.empty() && path != header.sourcePath) {
      std::fprintf(stderr, "marrow-cli: the snapshot was taken of %s; reading that file\n",
                   header.sourcePath.c_str());
    }
    request = SnapshotRequest(header, snapshot);
    tempFolder = header.tempFolder;
  }

  StderrProgress progress;
  StoreReader reader(tempFolder);
  reader.SetProgressSink(&progress);
  MemoryTree tree;
  const TreeItem root = tree.AddRoot(request.sourcePath, kSourceImage);
  const ScanOutcome outcome = StartScan(reader, tree, root, request);
  if (!outcome.opened) {
    std::fprintf(stderr, "marrow-cli: %s: %s\n", request.sourcePath.c_str(), outcome.errorText.c_str());
    return 1;
  }
  if (progress.WasCancelled()) {
    std::fprintf(stderr, "Stopped by the user; the tree so far follows.\n");
    progress.ClearCancel();
  }
  if (!saveTo.empty()) WriteSnapshot(reader, saveTo);

  const std::vector<TreeLine> lines = CollectLines(reader, tree, root);
  if (json) {
    PrintJson(reader, lines);
  } else {
    PrintText(reader, lines);
  }
  if (lines.empty()) std::fprintf(stderr, "No folder was found in %s.\n", request.sourcePath.c_str());
  return 0;
}

}  // namespace marrow::cli
