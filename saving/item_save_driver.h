// The item reader's side of a save: each item of a walk read from the store,
// filtered and turned into its MIME file, in a folder that holds one item's
// files at a time.
#pragma once

#include <string>

#include "mail/item_converter.h"
#include "content/item_reader.h"
#include "saving/save_pipeline.h"

namespace marrow {

class ItemSaveDriver {
 public:
  // `itemFolder` is made if missing and removed with the driver.
  ItemSaveDriver(StoreReader& reader, std::string itemFolder);
  ~ItemSaveDriver();
  ItemSaveDriver(const ItemSaveDriver&) = delete;
  ItemSaveDriver& operator=(const ItemSaveDriver&) = delete;

  // Hands the pipeline this driver's conversion and rebuild.
  void Attach(SavePipeline& pipeline);

  ConvertedItem Convert(const FolderItem& item, const SaveFilter* filter);
  // The MIME file of a task, contact, appointment or journal entry made from
  // its rows, over the file Convert wrote.
  void RebuildNonMail(const ConvertedItem& item);

 private:
  StoreReader& reader_;
  std::string itemFolder_;
  ItemReader items_;
  ItemResult last_;
};

}  // namespace marrow
