// A save of a session's sources as a save wizard leaves it: the target, the
// destination, the folders and the filters; run over the existing save runs.
#pragma once

#include <string>
#include <vector>

#include "saving/save_all_stores.h"
#include "saving/save_options.h"
#include "saving/save_pipeline.h"

namespace marrow {

class Session;

enum class FilterField { kFrom, kTo, kSubject, kFolderName, kItemType };

struct SaveJob {
  OutputKind kind = kOutputNone;
  std::string destination;           // an existing folder
  std::vector<std::string> folders;  // paths as the tree shows them; empty: every folder
  int deleted = 1;                   // lost items: 1 with the others, 2 left out, 3 alone
  SaveFilter filter;

  // Adds a value to a field's filter; `mode` (kFilterInclude or
  // kFilterExclude) holds for all the field's values, the last one given.
  void AddText(FilterField field, int mode, const std::string& value);
  // Adds the local calendar days from `firstDay` to `lastDay` ("YYYY-MM-DD"),
  // both whole; false when either is not a day. The last mode given holds.
  bool AddDays(int mode, const std::string& firstDay, const std::string& lastDay);
};

struct SaveJobEnd {
  // Named folders that no parsed source has, in the order named, when no
  // source is pending; nothing was saved then.
  std::vector<std::string> missingFolders;
  SaveAllEnd saved;
};

// Saves the parsed sources in opening order, then the pending ones, each
// parsed when its turn comes. Every source's folders are checked as the job
// names them.
SaveJobEnd RunSaveJob(Session& session, const SaveJob& job);

}  // namespace marrow
