// The item reader's side of a save: each item of a walk read from the store,
// filtered and turned into its finished MIME file and header lines, in a
// folder that holds one item's files at a time.
#pragma once

#include <string>

#include "content/item_reader.h"
#include "mail/item_converter.h"
#include "saving/save_pipeline.h"

namespace marrow {

class ItemSaveDriver {
 public:
  // `itemFolder` is made if missing and removed with the driver.
  ItemSaveDriver(StoreReader& reader, std::string itemFolder);
  ~ItemSaveDriver();
  ItemSaveDriver(const ItemSaveDriver&) = delete;
  ItemSaveDriver& operator=(const ItemSaveDriver&) = delete;

  // Hands the pipeline this driver's conversion.
  void Attach(SavePipeline& pipeline);

  // The files stay until the next item is converted. A task, contact,
  // appointment or journal entry gets the MIME file made from its rows.
  ConvertedItem Convert(const FolderItem& item, const SaveFilter* filter, const ItemWants& wants = {});

 private:
  std::string RebuildNonMail(const ItemResult& result);

  StoreReader& reader_;
  std::string itemFolder_;
  ItemReader items_;
};

}  // namespace marrow
