#include "saving/item_save_driver.h"

#include <filesystem>

#include "mail/eml_builder.h"
#include "content/property_values.h"
#include "saving/save_filter.h"
#include "store/store_reader.h"

namespace marrow {

namespace fs = std::filesystem;

ItemSaveDriver::ItemSaveDriver(StoreReader& reader, std::string itemFolder)
    : reader_(reader), itemFolder_(std::move(itemFolder)), items_(reader, itemFolder_) {}

ItemSaveDriver::~ItemSaveDriver() {
  std::error_code ec;
  fs::remove_all(itemFolder_, ec);
}

void ItemSaveDriver::Attach(SavePipeline& pipeline) {
  pipeline.SetConversion([this](const FolderItem& item, const SaveFilter* filter) { return Convert(item, filter); },
                         [this](const ConvertedItem& item) { RebuildNonMail(item); });
}

ConvertedItem ItemSaveDriver::Convert(const FolderItem& item, const SaveFilter* filter) {
  ConvertedItem out;
  items_.ClearItemFolder();
  SubnodeLists subnodes;
  reader_.ReadSubnodeList(item.subnodeBlock, subnodes);
  PropertyBag bag;
  if (!reader_.ReadBagFromBlock(item.dataBlock, bag, subnodes)) return out;
  ConvertOptions options;
  options.store = &reader_;
  options.directSave = true;
  options.filter = [filter](const ItemResult& r) {
    return ItemAllowed(filter, r.fromText, r.toText, r.subject, FiletimeToUnixSeconds(r.deliveryTime), r.messageClass);
  };
  last_ = ItemResult();
  out.emlPath = ConvertItem(items_, bag, subnodes, options, last_);
  out.type = last_.typeText;
  out.fromText = last_.fromText;
  out.subject = last_.subject;
  out.deliveryTime = last_.deliveryTime;
  return out;
}

void ItemSaveDriver::RebuildNonMail(const ConvertedItem& item) {
  ItemEmlParts parts;
  parts.itemText = last_.itemText;
  parts.typeText = last_.typeText;
  parts.subject = last_.subject;
  parts.deliveryTime = last_.deliveryTime;
  parts.plainBody = last_.plainBody;
  parts.fromText = last_.fromText;
  parts.toText = last_.toText;
  const std::string rebuilt = BuildItemEml(itemFolder_, parts, last_.attachments);
  std::error_code ec;
  if (!rebuilt.empty()) fs::copy_file(rebuilt, item.emlPath, fs::copy_options::overwrite_existing, ec);
}

}  // namespace marrow
