// The seam between the save walk and the output formats: the walk hands a
// writer each folder it saves and each item of it, numbered, and the writer
// makes one output of each.
#pragma once

#include <cstdint>
#include <string>

#include "content/engine_files.h"

namespace marrow {

// One item as the item reader gives it to a save.
struct ConvertedItem {
  std::string emlPath;           // the item's MIME file; empty when none was made
  std::string fromText;          // the sender as the item list shows it
  EngineItem header;             // the header lines: type, subject, class, time, flags, rows
  std::string propertyDumpPath;  // empty unless the writer wants the dump
};

// What a writer asks of each item beyond its MIME file and header lines.
struct ItemWants {
  bool propertyDump = false;
};

// Where an item goes.
struct ItemPlace {
  std::string folderPath;    // the folder's full output path, "/" at its end
  std::string relFolder;     // the same below the destination
  std::uint32_t number = 0;  // from 1 in each folder; a failed item leaves a gap
};

class ItemWriter {
 public:
  virtual ~ItemWriter() = default;
  virtual ItemWants Wants() const { return {}; }
  // The folder's directory exists; `folderName` is its own label. A folder
  // lasts until the next BeginFolder or EndRun. False, with `failure` set,
  // ends the walk.
  virtual bool BeginFolder(const std::string& folderPath, const std::string& folderName, std::string& failure) = 0;
  // True when the item became an output.
  virtual bool WriteItem(const ConvertedItem& item, const ItemPlace& place) = 0;
  virtual void EndRun() {}
};

}  // namespace marrow
