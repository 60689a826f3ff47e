// One stored item to an EML file and the fields the save pipeline reads of
// it. Embedded messages become attached messages, converted the same way.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "content/item_reader.h"
#include "store/property_bag.h"
#include "store/store_reader.h"

namespace marrow {

struct ItemResult {
  int kind = 0;                    // ClassifyItem of the message class
  std::string typeText;            // "EMAIL", "JOURNAL", "TASK", "CALENDER", "CONTACT"
  std::string rtfPath;             // the RTF body left for the pipeline; the EML then has an empty body
  std::uint64_t deliveryTime = 0;  // FILETIME
  std::string messageClass;
  std::uint32_t messageFlags = 0;
  std::string subject;
  std::string itemText;   // the save-form rows of an item that is not mail
  std::string plainBody;  // its plain body as text, for BuildItemEml
  std::string fromText;
  std::string toText, ccText, bccText;
  std::vector<std::string> allRecipients;
  std::uint32_t iconIndex = 0;
  std::uint32_t importance = 0;
  std::string categories;
  AttachmentFiles attachments;
};

struct ConvertOptions {
  // Named properties and subnode bytes for the views of items that are not
  // mail; without it they render without named rows. Not owned.
  StoreReader* store = nullptr;
  // The RTF body is not left to the pipeline: the plain text stands instead.
  bool directSave = false;
  // Decides on subject, sender, recipients and times whether the item is
  // converted at all; empty lets everything through. Embedded messages are
  // not asked.
  std::function<bool(const ItemResult&)> filter;
};

// Converts the item and returns its EML path; "" when the filter refused it
// (its sender, subject and time are then cleared in `result`). Sets the
// reader's header and recipient parsers to the ones below.
std::string ConvertItem(ItemReader& items, const PropertyBag& bag, const SubnodeLists& subnodes,
                        const ConvertOptions& options, ItemResult& result);

// The From field of a block of transport headers; "" when it has none.
std::string ParseFromHeaders(const std::string& headers);
// The addresses of an EML file's To, Cc and Bcc as "addr;addr;" lists.
void ParseEmlRecipients(const std::string& emlPath, std::string& to, std::string& cc, std::string& bcc);

}  // namespace marrow
