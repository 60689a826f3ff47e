#include "session/save_job.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <memory>

#include "saving/item_save_driver.h"
#include "saving/profile_store.h"
#include "session/session.h"
#include "store/store_reader.h"
#include "store/temp_file.h"

namespace marrow {
namespace {

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

// One source's save: its pipeline and the item reader's side of it.
struct StoreSave {
  std::unique_ptr<SavePipeline> pipeline;
  std::unique_ptr<ItemSaveDriver> driver;
};

}  // namespace

void SaveJob::AddText(FilterField field, int mode, const std::string& value) {
  auto add = [&](int& fieldMode, std::vector<std::string>& values) {
    fieldMode = mode;
    values.push_back(value);
  };
  switch (field) {
    case FilterField::kFrom: add(filter.fromInclude, filter.fromValues); break;
    case FilterField::kTo: add(filter.toInclude, filter.toValues); break;
    case FilterField::kSubject: add(filter.subjectInclude, filter.subjectValues); break;
    case FilterField::kFolderName: add(filter.folderInclude, filter.folderValues); break;
    case FilterField::kItemType: add(filter.itemTypeInclude, filter.itemTypeValues); break;
  }
}

bool SaveJob::AddDays(int mode, const std::string& firstDay, const std::string& lastDay) {
  DateRange range{};
  if (!LocalDay(firstDay, false, range.first) || !LocalDay(lastDay, true, range.second)) return false;
  filter.dateInclude = mode;
  filter.dates.push_back(range);
  return true;
}

SaveJobEnd RunSaveJob(Session& session, const SaveJob& job) {
  SaveJobEnd end;
  MemoryProfile profile;
  profile.ints[kSaveDeletedKey] = job.deleted;
  SaveOptions options;
  options.kind = job.kind;
  options.destinationPath = job.destination;
  options.filter = job.filter;

  std::vector<StoreSave> saves(session.SourceCount());
  auto prepare = [&](std::size_t index) -> SavePipeline* {
    Source& source = session.At(index);
    StoreSave& save = saves[index];
    save.pipeline =
        std::make_unique<SavePipeline>(source.Reader(), source.State(), source.Tree(), source.Root(), profile);
    // Each store's items pass through a folder of its own.
    save.driver = std::make_unique<ItemSaveDriver>(
        source.Reader(),
        DefaultTempFolder() + "/tempjj32125-" + std::to_string(::getpid()) + "-" + std::to_string(index) + "/");
    save.driver->Attach(*save.pipeline);
    return save.pipeline.get();
  };

  std::vector<bool> folderFound(job.folders.size(), false);
  std::vector<SavePipeline*> parsed;
  std::vector<std::size_t> pending;
  for (std::size_t i = 0; i < session.SourceCount(); ++i) {
    Source& source = session.At(i);
    if (!source.IsParsed()) {
      pending.push_back(i);
      continue;
    }
    if (!job.folders.empty()) {
      const std::vector<bool> found = source.CheckOnly(job.folders);
      for (std::size_t k = 0; k < found.size(); ++k) folderFound[k] = folderFound[k] || found[k];
    }
    parsed.push_back(prepare(i));
  }
  if (pending.empty()) {
    for (std::size_t k = 0; k < job.folders.size(); ++k) {
      if (!folderFound[k]) end.missingFolders.push_back(job.folders[k]);
    }
    if (!end.missingFolders.empty()) return end;
  }

  std::vector<std::string> pendingPaths;
  for (std::size_t i : pending) pendingPaths.push_back(session.At(i).Path());
  std::size_t next = 0;
  auto parsePending = [&](const std::string&) -> SavePipeline* {
    const std::size_t index = pending[next++];
    if (!session.Parse(index).opened) return nullptr;
    if (!job.folders.empty()) session.At(index).CheckOnly(job.folders);
    return prepare(index);
  };
  end.saved = SaveAllStores(parsed, options, pendingPaths, parsePending);
  return end;
}

}  // namespace marrow
