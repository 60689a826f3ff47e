// What inspecting a store file shows: its form, the encoding vote and the
// folders of its node index, read without a recovery.
#pragma once

#include <cstdint>
#include <string>

#include "store/store_summary.h"

namespace marrow {

// False, with `error` the reader's text, when the file cannot be opened.
bool InspectStore(const std::string& storePath, StoreSummary& summary, std::string& error);

// What the folder tree shows of a folder of the summary.
struct FolderLabel {
  std::string name;
  std::string containerClass;  // "IPF.NOTE" when the folder names none
  std::uint32_t itemCount = 0;
};
FolderLabel LabelOf(const FolderSummary& folder);

}  // namespace marrow
