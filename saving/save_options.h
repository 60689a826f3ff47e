// What the save wizard leaves for a save job: target, filters, destination.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace marrow {

enum OutputKind {
  kOutputNone = 0,
  kOutputPst = 1,
  kOutputMsg = 2,
  kOutputDbx = 3,
  kOutputEml = 4,
  kOutputMbox = 5,
  kOutputServer = 6,
  kOutputTxt = 7,
  kOutputRtf = 8,
  kOutputDoc = 9,
  kOutputHtml = 10,
  kOutputMhtml = 11,
  kOutputPdf = 12,
  kOutputPrint = 13,
};

// A filter's mode: off, pass what matches, refuse what matches.
enum FilterMode { kFilterOff = 0, kFilterInclude = 1, kFilterExclude = 2 };

// One date range, both ends included; times as Unix seconds.
struct DateRange {
  std::int64_t first;
  std::int64_t second;
};

// The filters of a run.
struct SaveFilter {
  int fromInclude = kFilterOff, toInclude = kFilterOff, subjectInclude = kFilterOff, folderInclude = kFilterOff;
  std::vector<std::string> fromValues, toValues, subjectValues, folderValues;
  int itemTypeInclude = kFilterOff;
  std::vector<std::string> itemTypeValues;  // "Email", "Contacts", "Task", "Calendar", ...
  int dateInclude = kFilterOff;
  std::vector<DateRange> dates;
};

struct SaveOptions {
  OutputKind kind = kOutputNone;
  bool singleStore = false;
  bool usesEngine = false;
  SaveFilter filter;
  int splitIndex = 0;
  std::string storePrefix;
  std::string destinationPath;
  bool hierarchyWithoutRoot = true;
  bool excludeDeleted = false;
  std::string mailClient;
};

}  // namespace marrow
