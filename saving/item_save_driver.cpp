#include "saving/item_save_driver.h"

#include <filesystem>

#include "content/engine_files.h"
#include "content/property_values.h"
#include "mail/eml_builder.h"
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
  pipeline.SetConversion([this](const FolderItem& item, const SaveFilter* filter, const ItemWants& wants) {
    return Convert(item, filter, wants);
  });
}

ConvertedItem ItemSaveDriver::Convert(const FolderItem& item, const SaveFilter* filter, const ItemWants& wants) {
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
  ItemResult result;
  out.emlPath = ConvertItem(items_, bag, subnodes, options, result);
  // Mail keeps the file the converter wrote; the other kinds show their rows.
  if (!out.emlPath.empty() && result.typeText != "EMAIL") {
    const std::string rebuilt = RebuildNonMail(result);
    if (!rebuilt.empty()) out.emlPath = rebuilt;
  }
  out.fromText = result.fromText;
  EngineItem& header = out.header;
  header.typeText = result.typeText;
  header.rtfPath = result.rtfPath;
  header.deliveryTime = static_cast<std::int64_t>(result.deliveryTime);
  header.messageClass = result.messageClass;
  header.subject = result.subject;
  header.messageFlags = result.messageFlags;
  header.iconIndex = result.iconIndex;
  header.importance = result.importance;
  header.categories = result.categories;
  header.itemText = result.itemText;
  if (wants.propertyDump && !out.emlPath.empty()) {
    const std::string dump = (fs::path(itemFolder_) / kPropertyDumpFileName).string();
    if (WritePropertyDump(bag, reader_.NamedProperties(), dump)) out.propertyDumpPath = dump;
  }
  return out;
}

std::string ItemSaveDriver::RebuildNonMail(const ItemResult& result) {
  ItemEmlParts parts;
  parts.itemText = result.itemText;
  parts.typeText = result.typeText;
  parts.subject = result.subject;
  parts.deliveryTime = result.deliveryTime;
  parts.plainBody = result.plainBody;
  parts.fromText = result.fromText;
  parts.toText = result.toText;
  return BuildItemEml(itemFolder_, parts, result.attachments);
}

}  // namespace marrow
