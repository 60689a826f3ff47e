// marrow-cli export FILE --to eml|mbox --out DIR [--folder PATH]... [--mode quick|advance|raw]
//   [--deleted all|exclude|only] [--from|--to|--subject|--folder-name include|exclude TEXT]...
//   [--type include|exclude LABEL]... [--dates [include|exclude] FIRST..SECOND]... [--snapshot F]
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/recovered_source.h"
#include "content/eml_builder.h"
#include "content/item_converter.h"
#include "saving/save_filter.h"
#include "saving/save_pipeline.h"
#include "store/temp_file.h"

namespace marrow::cli {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: marrow-cli export FILE --to eml|mbox --out DIR [--folder PATH]... [--mode quick|advance|raw]\n"
    "         [--deleted all|exclude|only] [--from|--to|--subject|--folder-name include|exclude TEXT]...\n"
    "         [--type include|exclude LABEL]... [--dates [include|exclude] YYYY-MM-DD..YYYY-MM-DD]...\n"
    "         [--snapshot F]\n";

// FILETIME (100 ns since 1601) as Unix seconds.
std::int64_t UnixSeconds(std::uint64_t filetime) {
  return static_cast<std::int64_t>(filetime / 10000000ull) - 11644473600ll;
}

// A local calendar day's start or end as Unix seconds; false when not YYYY-MM-DD.
bool LocalDay(const std::string& text, bool end, std::int64_t& out) {
  std::tm tm{};
  if (std::sscanf(text.c_str(), "%4d-%2d-%2d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday) != 3) return false;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  tm.tm_hour = end ? 23 : 0;
  tm.tm_min = end ? 59 : 0;
  tm.tm_sec = end ? 59 : 0;
  tm.tm_isdst = -1;
  out = static_cast<std::int64_t>(std::mktime(&tm));
  return true;
}

bool FilterMode(const std::string& word, int& mode) {
  if (word == "include") mode = kFilterInclude;
  else if (word == "exclude") mode = kFilterExclude;
  else return false;
  return true;
}

}  // namespace

int RunExport(const std::vector<std::string>& args) {
  SourceArgs source;
  SaveOptions options;
  std::vector<std::string> folders;
  int deleted = 1;
  SaveFilter& filter = options.filter;
  auto bad = [] {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  };
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const std::size_t left = args.size() - i - 1;
    if (a == "--to" && left >= 1 && (args[i + 1] == "eml" || args[i + 1] == "mbox")) {
      options.kind = args[++i] == "eml" ? kOutputEml : kOutputMbox;
    } else if (a == "--out" && left >= 1) {
      options.destinationPath = args[++i];
    } else if (a == "--folder" && left >= 1) {
      folders.push_back(args[++i]);
    } else if (const SourceOption taken = TakeSourceOption(args, i, source); taken != SourceOption::kNotMine) {
      if (taken == SourceOption::kBad) return bad();
    } else if (a == "--deleted" && left >= 1) {
      const std::string& d = args[++i];
      deleted = d == "all" ? 1 : d == "exclude" ? 2 : d == "only" ? 3 : 0;
      if (deleted == 0) return bad();
    } else if ((a == "--from" || a == "--to" || a == "--subject" || a == "--folder-name" || a == "--type") &&
               left >= 2) {
      int mode = 0;
      if (!FilterMode(args[i + 1], mode)) return bad();
      const std::string& value = args[i + 2];
      i += 2;
      if (a == "--from") filter.fromInclude = mode, filter.fromValues.push_back(value);
      if (a == "--to") filter.toInclude = mode, filter.toValues.push_back(value);
      if (a == "--subject") filter.subjectInclude = mode, filter.subjectValues.push_back(value);
      if (a == "--folder-name") filter.folderInclude = mode, filter.folderValues.push_back(value);
      if (a == "--type") filter.itemTypeInclude = mode, filter.itemTypeValues.push_back(value);
    } else if (a == "--dates" && left >= 1) {
      int mode = kFilterInclude;
      if (FilterMode(args[i + 1], mode)) ++i;
      if (i + 1 >= args.size()) return bad();
      const std::string range = args[++i];
      const std::size_t dots = range.find("..");
      DateRange r{};
      if (dots == std::string::npos || !LocalDay(range.substr(0, dots), false, r.first) ||
          !LocalDay(range.substr(dots + 2), true, r.second)) {
        return bad();
      }
      filter.dateInclude = mode;
      filter.dates.push_back(r);
    } else if (source.path.empty() && !a.empty() && a[0] != '-') {
      source.path = a;
    } else {
      return bad();
    }
  }
  if ((source.path.empty() && source.snapshot.empty()) || options.kind == kOutputNone ||
      options.destinationPath.empty()) {
    return bad();
  }
  std::error_code ec;
  if (!fs::is_directory(options.destinationPath, ec)) {
    std::fprintf(stderr, "marrow-cli: the output folder %s does not exist\n", options.destinationPath.c_str());
    return 1;
  }

  RecoveredSource recovered;
  if (!recovered.Run(source)) return 1;
  StoreReader& reader = recovered.Reader();
  MemoryTree& tree = recovered.Tree();
  if (!folders.empty()) {
    tree.SetCheckedBelow(recovered.Root(), false);
    for (const std::string& path : folders) {
      const long row = recovered.FindFolder(path);
      if (row < 0) {
        std::fprintf(stderr, "marrow-cli: no folder \"%s\" in the recovered tree (see marrow-cli tree)\n",
                     path.c_str());
        return 1;
      }
      tree.SetCheckedBelow(reader.folders[row].treeItem, true);
    }
  }

  // The item folder holds one item's files at a time.
  const std::string itemFolder = DefaultTempFolder() + "/tempjj32125-" + std::to_string(::getpid()) + "/";
  ItemReader items(reader, itemFolder);
  ItemResult last;
  auto convert = [&](const FolderItem& item, const SaveFilter* run) {
    ConvertedItem out;
    items.ClearItemFolder();
    SubnodeLists subnodes;
    reader.ReadSubnodeList(item.subnodeBlock, subnodes);
    PropertyBag bag;
    if (!reader.ReadBagFromBlock(item.dataBlock, bag, subnodes)) return out;
    ConvertOptions convertOptions;
    convertOptions.store = &reader;
    convertOptions.directSave = true;
    convertOptions.filter = [run](const ItemResult& r) {
      return ItemAllowed(run, r.fromText, r.toText, r.subject, UnixSeconds(r.deliveryTime), r.messageClass);
    };
    last = ItemResult();
    out.emlPath = ConvertItem(items, bag, subnodes, convertOptions, last);
    out.type = last.typeText;
    out.fromText = last.fromText;
    out.subject = last.subject;
    out.deliveryTime = last.deliveryTime;
    return out;
  };
  auto rebuild = [&](const ConvertedItem& item) {
    ItemEmlParts parts;
    parts.itemText = last.itemText;
    parts.typeText = last.typeText;
    parts.subject = last.subject;
    parts.deliveryTime = last.deliveryTime;
    parts.plainBody = last.plainBody;
    parts.fromText = last.fromText;
    parts.toText = last.toText;
    const std::string rebuilt = BuildItemEml(itemFolder, parts, last.attachments);
    std::error_code copyError;
    if (!rebuilt.empty()) fs::copy_file(rebuilt, item.emlPath, fs::copy_options::overwrite_existing, copyError);
  };

  MemoryProfile profile;
  profile.ints[kSaveDeletedKey] = deleted;
  SavePipeline pipeline(reader, tree, recovered.Root(), profile);
  pipeline.SetConversion(convert, rebuild);
  const SaveEnd end = pipeline.SaveStore(options);
  fs::remove_all(itemFolder, ec);

  if (end.cancelled) {
    std::printf("Saving process aborted by user.\n");
    return 1;
  }
  if (end.failed) {
    std::printf("%s\n", end.message.c_str());
    return 1;
  }
  std::printf("%u item(s) saved at %s\n", end.itemsWritten, end.destination.c_str());
  return 0;
}

}  // namespace marrow::cli
