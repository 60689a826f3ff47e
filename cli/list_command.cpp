// marrow-cli list FILE FOLDERPATH [--json] [--mode quick|advance|raw] [--snapshot F]
#include <cstdio>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_writer.h"
#include "cli/recovered_source.h"
#include "content/item_reader.h"
#include "content/item_render.h"
#include "store/folder_items.h"
#include "store/temp_file.h"

namespace marrow::cli {
namespace {

constexpr const char* kUsage =
    "usage: marrow-cli list FILE FOLDERPATH [--json] [--mode quick|advance|raw] [--snapshot F]\n";

struct ListRow {
  ItemRow item;
  int icon;
  bool attachment;
};

}  // namespace

int RunList(const std::vector<std::string>& args) {
  SourceArgs source;
  std::string folderPath;
  bool json = false;
  std::vector<std::string> positional;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--json") {
      json = true;
    } else if (const SourceOption taken = TakeSourceOption(args, i, source); taken != SourceOption::kNotMine) {
      if (taken == SourceOption::kBad) {
        std::fprintf(stderr, "%s", kUsage);
        return 2;
      }
    } else if (!a.empty() && a[0] != '-') {
      positional.push_back(a);
    } else {
      std::fprintf(stderr, "%s", kUsage);
      return 2;
    }
  }
  if (positional.size() != 2) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  source.path = positional[0];
  folderPath = positional[1];
  RecoveredSource recovered;
  if (!recovered.Run(source)) return 1;
  const long row = recovered.FindFolder(folderPath);
  if (row < 0) {
    std::fprintf(stderr, "marrow-cli: no folder \"%s\" in the recovered tree (see marrow-cli tree)\n",
                 folderPath.c_str());
    return 1;
  }

  StoreReader& reader = recovered.Reader();
  ItemReader items(reader, DefaultTempFolder());
  // The item list shows what the save of everything would take.
  std::vector<ListRow> rows;
  const RecoveryState& state = recovered.State();
  ForEachFolderItem(reader, state, state.folders[row].nodeId, 1, [&](const FolderItem& f) {
    ItemRow r;
    if (!items.ReadItemRow(f.dataBlock, f.nodeId, f.subnodeBlock, f.isLost, r)) return;
    rows.push_back({r, ItemIcon(ClassifyItem(r.messageClass), r.iconIndex, r.messageFlags),
                    (r.messageFlags & kFlagHasAttachments) != 0});
  });

  if (json) {
    JsonWriter w;
    w.BeginObject();
    w.Member("folder", folderPath);
    w.Key("items");
    w.BeginArray();
    for (const ListRow& r : rows) {
      w.BeginObject();
      w.Member("nodeId", r.item.nodeId);
      w.Member("importance", static_cast<std::uint64_t>(r.item.importance));
      w.Member("icon", r.icon);
      w.Member("attachment", r.attachment);
      w.Member("from", r.item.fromText);
      w.Member("subject", r.item.subject);
      w.Member("date", r.item.dateText);
      w.Member("status", std::string(r.item.isLost ? "Lost/Deleted" : "Existing"));
      w.Member("messageClass", r.item.messageClass);
      w.EndObject();
    }
    w.EndArray();
    w.EndObject();
    std::printf("%s\n", w.Text().c_str());
    return 0;
  }
  std::printf("%-4s %-4s %-4s %-30s %-40s %-24s %s\n", "Imp", "Icon", "Att", "From", "Subject", "Date/Time",
              "Lost/Deleted");
  for (const ListRow& r : rows) {
    std::printf("%-4u %-4d %-4s %-30.30s %-40.40s %-24s %s\n", r.item.importance, r.icon, r.attachment ? "yes" : "",
                r.item.fromText.c_str(), r.item.subject.c_str(), r.item.dateText.c_str(),
                r.item.isLost ? "Lost/Deleted" : "Existing");
  }
  return 0;
}

}  // namespace marrow::cli
