// marrow-cli export FILE... --to eml|mbox --out DIR [--folder PATH]... [--mode quick|advance|raw]
//   [--deleted all|exclude|only] [--from|--to|--subject|--folder-name include|exclude TEXT]...
//   [--type include|exclude LABEL]... [--dates [include|exclude] FIRST..SECOND]... [--snapshot F]
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/recovered_source.h"
#include "saving/save_filter.h"
#include "saving/item_save_driver.h"
#include "saving/save_all_stores.h"
#include "saving/save_pipeline.h"
#include "store/temp_file.h"

namespace marrow::cli {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: marrow-cli export FILE... --to eml|mbox --out DIR [--folder PATH]... [--mode quick|advance|raw]\n"
    "         [--deleted all|exclude|only] [--from|--to|--subject|--folder-name include|exclude TEXT]...\n"
    "         [--type include|exclude LABEL]... [--dates [include|exclude] YYYY-MM-DD..YYYY-MM-DD]...\n"
    "         [--snapshot F]\n";

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
  std::vector<std::string> paths;
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
    } else if (!a.empty() && a[0] != '-') {
      paths.push_back(a);
    } else {
      return bad();
    }
  }
  if (paths.empty() && !source.snapshot.empty()) paths.push_back("");  // the snapshot names its source
  // A snapshot belongs to one store.
  if (paths.empty() || (paths.size() > 1 && !source.snapshot.empty()) || options.kind == kOutputNone ||
      options.destinationPath.empty()) {
    return bad();
  }
  std::error_code ec;
  if (!fs::is_directory(options.destinationPath, ec)) {
    std::fprintf(stderr, "marrow-cli: the output folder %s does not exist\n", options.destinationPath.c_str());
    return 1;
  }

  // Every store is recovered first, as the program has them all open when
  // the save starts; then all are saved in the order given.
  struct Store {
    RecoveredSource recovered;
    std::unique_ptr<SavePipeline> pipeline;
    std::unique_ptr<ItemSaveDriver> driver;
  };
  MemoryProfile profile;
  profile.ints[kSaveDeletedKey] = deleted;
  std::vector<std::unique_ptr<Store>> stores;
  std::vector<bool> folderFound(folders.size(), false);
  for (const std::string& path : paths) {
    auto store = std::make_unique<Store>();
    SourceArgs storeSource = source;
    storeSource.path = path;
    if (!store->recovered.Run(storeSource)) return 1;
    RecoveredSource& recovered = store->recovered;
    StoreReader& reader = recovered.Reader();
    if (!folders.empty()) {
      recovered.Tree().SetCheckedBelow(recovered.Root(), false);
      for (std::size_t k = 0; k < folders.size(); ++k) {
        const long row = recovered.FindFolder(folders[k]);
        if (row < 0) continue;
        folderFound[k] = true;
        recovered.Tree().SetCheckedBelow(recovered.State().folders[row].treeItem, true);
      }
    }
    store->pipeline = std::make_unique<SavePipeline>(reader, recovered.State(), recovered.Tree(),
                                                     recovered.Root(), profile);
    store->driver = std::make_unique<ItemSaveDriver>(
        reader, DefaultTempFolder() + "/tempjj32125-" + std::to_string(::getpid()) + "-" +
                    std::to_string(stores.size()) + "/");
    store->driver->Attach(*store->pipeline);
    stores.push_back(std::move(store));
  }
  for (std::size_t k = 0; k < folders.size(); ++k) {
    if (folderFound[k]) continue;
    std::fprintf(stderr, "marrow-cli: no folder \"%s\" in the recovered tree (see marrow-cli tree)\n",
                 folders[k].c_str());
    return 1;
  }

  std::vector<SavePipeline*> pipelines;
  for (const auto& store : stores) pipelines.push_back(store->pipeline.get());
  const SaveAllEnd end = SaveAllStores(pipelines, options);
  int status = end.cancelled ? 1 : 0;
  for (const SaveEnd& one : end.stores) {
    if (one.failed) {
      std::printf("%s\n", one.message.c_str());
      status = 1;
    } else if (!one.cancelled) {
      std::printf("%u item(s) saved at %s\n", one.itemsWritten, one.destination.c_str());
    }
  }
  if (!end.text.empty()) std::printf("%s\n", end.text.c_str());
  return status;
}

}  // namespace marrow::cli
