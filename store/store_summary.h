// A summary of an opened store: its form, the encoding vote and the folders
// its node index knows, each with the number of messages it holds.
#pragma once

#include <cstdint>
#include <vector>

#include "store/property_bag.h"
#include "store/store_reader.h"

namespace marrow {

struct FolderSummary {
  FolderRow row;
  std::uint64_t messages = 0;
  PropertyBag properties;  // the folder's own property list
};

struct StoreSummary {
  std::uint64_t fileSize = 0;
  std::uint16_t versionWord = 0;
  std::uint8_t cryptByte = 0;
  bool isAnsi = false;
  bool isLargePage = false;
  int cryptMethod = 0;
  std::int64_t noneVotes = 0, permuteVotes = 0, cyclicVotes = 0;
  std::uint64_t nodeRootOffset = 0, blockRootOffset = 0;
  std::vector<FolderSummary> folders;

  std::uint64_t TotalMessages() const;
};

// Reads the folder rows and each folder's property list, as the folder tree
// rebuild does (so that the encoding vote has run), and counts each
// folder's messages.
StoreSummary SummarizeStore(StoreReader& reader);

}  // namespace marrow
