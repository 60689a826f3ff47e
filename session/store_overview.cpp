#include "session/store_overview.h"

#include "store/recovery.h"

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
  FolderLabel label;
  ReadFolderText(folder.properties, label.name, label.containerClass, label.itemCount);
  return label;
}

}  // namespace marrow
