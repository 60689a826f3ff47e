// marrow-cli tree FILE [--mode quick|advance|raw] [--json] [--save-snapshot F] [--snapshot F]
#include <cstdio>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_writer.h"
#include "cli/recovered_source.h"
#include "store/folder_items.h"
#include "store/snapshot.h"
#include "store/store_reader.h"

namespace marrow::cli {
namespace {

constexpr const char* kUsage =
    "usage: marrow-cli tree FILE [--mode quick|advance|raw] [--json] [--save-snapshot F] [--snapshot F]\n";
// The item list shows index messages and lost rows alike.
constexpr std::uint32_t kListDeletedToo = 1;

struct TreeLine {
  std::size_t row;
  std::string path;
  std::uint64_t items;
};

// The folders in tree order, each with the rows its item list would show.
std::vector<TreeLine> CollectLines(RecoveredSource& source) {
  std::vector<TreeLine> lines;
  for (const FolderPath& f : source.Folders()) lines.push_back({f.row, f.path, 0});
  const RecoveryState& state = source.State();
  for (TreeLine& line : lines) {
    ForEachFolderItem(source.Reader(), state, state.folders[line.row].nodeId, kListDeletedToo,
                      [&](const FolderItem&) { ++line.items; });
  }
  return lines;
}

void PrintJson(const RecoveryState& state, const std::vector<TreeLine>& lines) {
  JsonWriter w;
  w.BeginObject();
  w.Key("folders");
  w.BeginArray();
  for (const TreeLine& line : lines) {
    const FolderRecord& f = state.folders[line.row];
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

void PrintText(const RecoveryState& state, const std::vector<TreeLine>& lines) {
  std::printf("%-8s %-8s %-5s %-20s %s\n", "Items", "Count", "Lost", "Class", "Path");
  for (const TreeLine& line : lines) {
    const FolderRecord& f = state.folders[line.row];
    std::printf("%-8llu %-8u %-5s %-20s %s\n", static_cast<unsigned long long>(line.items), f.itemCount,
                f.isLost ? "lost" : "", f.containerClass.c_str(), line.path.c_str());
  }
}

}  // namespace

int RunTree(const std::vector<std::string>& args) {
  SourceArgs source;
  std::string saveTo;
  bool json = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool hasValue = i + 1 < args.size();
    if (a == "--json") {
      json = true;
    } else if (const SourceOption taken = TakeSourceOption(args, i, source); taken != SourceOption::kNotMine) {
      if (taken == SourceOption::kBad) {
        std::fprintf(stderr, "%s", kUsage);
        return 2;
      }
    } else if (a == "--save-snapshot" && hasValue) {
      saveTo = args[++i];
    } else if (source.path.empty() && !a.empty() && a[0] != '-') {
      source.path = a;
    } else {
      std::fprintf(stderr, "%s", kUsage);
      return 2;
    }
  }
  if (source.path.empty() && source.snapshot.empty()) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  RecoveredSource recovered;
  if (!recovered.Run(source)) return 1;
  if (!saveTo.empty()) WriteSnapshot(recovered.Reader(), recovered.State(), saveTo);

  const std::vector<TreeLine> lines = CollectLines(recovered);
  if (json) {
    PrintJson(recovered.State(), lines);
  } else {
    PrintText(recovered.State(), lines);
  }
  if (lines.empty()) std::fprintf(stderr, "No folder was found in %s.\n", recovered.Tree().Text(recovered.Root()).c_str());
  return 0;
}

}  // namespace marrow::cli
