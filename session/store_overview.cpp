#include "session/store_overview.h"

#include "content/property_values.h"

namespace marrow {

bool InspectStore(const std::string& storePath, StoreSummary& summary, std::string& error) {
  StoreReader reader;
  if (!reader.OpenStore(storePath)) {
    error = reader.LastError();
    return false;
  }
  summary = SummarizeStore(reader);
  return true;
}

FolderLabel LabelOf(const FolderSummary& folder) {
  FolderLabel label{GetString(folder.properties, 0x3001, false), GetString(folder.properties, 0x3613, false),
                    GetU32(folder.properties, 0x3602)};
  if (label.containerClass.empty()) label.containerClass = "IPF.NOTE";
  return label;
}

}  // namespace marrow
