// What a preview pane shows of one item of a parsed source: its header
// fields, its bodies and the names of its attachments.
#pragma once

#include <string>
#include <vector>

#include "content/item_reader.h"

namespace marrow {

class Source;

struct ItemPreview {
  std::string from, to, cc, bcc, subject, date;
  std::string plainBody;                     // UTF-8
  std::string htmlBody;                      // the stored bytes; the document names its charset
  std::vector<std::string> attachmentNames;  // in subnode order; embedded messages too
};

// False when the item's properties cannot be read.
bool ReadItemPreview(Source& source, const ItemRow& row, ItemPreview& out);

}  // namespace marrow
