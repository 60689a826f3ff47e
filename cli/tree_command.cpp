// marrow-cli tree FILE [--mode quick|advance|raw] [--json] [--save-snapshot F] [--snapshot F]
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_print.h"
#include "cli/source_options.h"
#include "session/folder_lines.h"

namespace marrow::cli {
namespace {

struct TreeArgs {
  SourceArgs source;
  std::string saveTo;
  bool json = false;
};

void PrintJsonLines(const std::vector<FolderLine>& lines) {
  Json folders = Json::array();
  for (const FolderLine& line : lines) {
    const FolderRecord& f = line.folder;
    folders.push_back({{"path", line.path},
                       {"nodeId", f.nodeId},
                       {"parentId", f.parentId},
                       {"name", f.name},
                       {"containerClass", f.containerClass},
                       {"itemCount", static_cast<std::uint64_t>(f.itemCount)},
                       {"isLost", f.isLost},
                       {"items", line.items}});
  }
  PrintJson({{"folders", folders}});
}

void PrintText(const std::vector<FolderLine>& lines) {
  std::printf("%-8s %-8s %-5s %-20s %s\n", "Items", "Count", "Lost", "Class", "Path");
  for (const FolderLine& line : lines) {
    const FolderRecord& f = line.folder;
    std::printf("%-8llu %-8u %-5s %-20s %s\n", static_cast<unsigned long long>(line.items), f.itemCount,
                f.isLost ? "lost" : "", f.containerClass.c_str(), line.path.c_str());
  }
}

int RunTree(const TreeArgs& args) {
  if (args.source.path.empty() && args.source.snapshot.empty()) {
    throw CLI::ValidationError("FILE", "a store file or --snapshot is required");
  }
  StderrProgress progress;
  Session session(&progress);
  if (!OpenSource(session, args.source, progress)) return 1;
  Source& source = session.At(0);
  if (!args.saveTo.empty()) source.SaveSnapshot(args.saveTo);

  const std::vector<FolderLine> lines = FolderLines(source);
  if (args.json) {
    PrintJsonLines(lines);
  } else {
    PrintText(lines);
  }
  if (lines.empty()) std::fprintf(stderr, "No folder was found in %s.\n", source.Path().c_str());
  return 0;
}

}  // namespace

Command AddTree(CLI::App& app) {
  auto args = std::make_shared<TreeArgs>();
  CLI::App* command =
      app.add_subcommand("tree",
                         "recovers the folder tree, lost items and orphan folders; --snapshot reloads a saved scan "
                         "instead of scanning, --save-snapshot keeps this one");
  command->add_option("FILE", args->source.path, "the store file");
  AddSourceOptions(*command, args->source);
  command->add_flag("--json", args->json, "print JSON");
  command->add_option("--save-snapshot", args->saveTo, "keep the finished scan in this file")->option_text("F");
  return {command, [args] { return RunTree(*args); }};
}

}  // namespace marrow::cli
