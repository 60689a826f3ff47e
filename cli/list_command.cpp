// marrow-cli list FILE FOLDERPATH [--json] [--mode quick|advance|raw] [--snapshot F]
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_print.h"
#include "cli/source_options.h"
#include "session/item_rows.h"

namespace marrow::cli {
namespace {

struct ListArgs {
  SourceArgs source;
  std::string folderPath;
  bool json = false;
};

void PrintJsonRows(const std::string& folderPath, const std::vector<ListRow>& rows) {
  Json items = Json::array();
  for (const ListRow& r : rows) {
    items.push_back({{"nodeId", r.item.nodeId},
                     {"importance", static_cast<std::uint64_t>(r.item.importance)},
                     {"icon", r.icon},
                     {"attachment", r.attachment},
                     {"from", r.item.fromText},
                     {"subject", r.item.subject},
                     {"date", r.item.dateText},
                     {"status", r.Status()},
                     {"messageClass", r.item.messageClass}});
  }
  PrintJson({{"folder", folderPath}, {"items", items}});
}

void PrintText(const std::vector<ListRow>& rows) {
  std::printf("%-4s %-4s %-4s %-30s %-40s %-24s %s\n", "Imp", "Icon", "Att", "From", "Subject", "Date/Time",
              "Lost/Deleted");
  for (const ListRow& r : rows) {
    std::printf("%-4u %-4d %-4s %-30.30s %-40.40s %-24s %s\n", r.item.importance, r.icon, r.attachment ? "yes" : "",
                r.item.fromText.c_str(), r.item.subject.c_str(), r.item.dateText.c_str(), r.Status());
  }
}

int RunList(const ListArgs& args) {
  StderrProgress progress;
  Session session(&progress);
  if (!OpenSource(session, args.source, progress)) return 1;
  Source& source = session.At(0);
  const long row = source.FindFolder(args.folderPath);
  if (row < 0) {
    std::fprintf(stderr, "marrow-cli: no folder \"%s\" in the recovered tree (see marrow-cli tree)\n",
                 args.folderPath.c_str());
    return 1;
  }
  const std::vector<ListRow> rows = FolderItemRows(source, static_cast<std::size_t>(row));
  if (args.json) {
    PrintJsonRows(args.folderPath, rows);
  } else {
    PrintText(rows);
  }
  return 0;
}

}  // namespace

Command AddList(CLI::App& app) {
  auto args = std::make_shared<ListArgs>();
  CLI::App* command =
      app.add_subcommand("list", "the item list of one folder of the recovered tree, by the path tree prints");
  command->add_option("FILE", args->source.path, "the store file")->required();
  command->add_option("FOLDERPATH", args->folderPath, "the folder, as tree prints its path")->required();
  command->add_flag("--json", args->json, "print JSON");
  AddSourceOptions(*command, args->source);
  return {command, [args] { return RunList(*args); }};
}

}  // namespace marrow::cli
