// One EML file per item, named by its number in its folder.
#pragma once

#include "saving/item_writer.h"

namespace marrow {

class EmlWriter final : public ItemWriter {
 public:
  bool BeginFolder(const std::string&, const std::string&, std::string&) override { return true; }
  // The MIME file copied as it stands to "<number>.eml".
  bool WriteItem(const ConvertedItem& item, const ItemPlace& place) override;
};

}  // namespace marrow
