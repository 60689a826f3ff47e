#include "store/store_reader.h"

#include "store/lost_item_scanner.h"

namespace marrow {

StoreReader::StoreReader(std::string tempFolder)
    : tempFolder_(std::move(tempFolder)), scanner_(std::make_unique<LostItemScanner>(*this)) {}

StoreReader::~StoreReader() = default;

void StoreReader::ReadPage(std::uint64_t offset, std::vector<std::uint8_t>& page) {
  page.assign(Layout().pageSize, 0);
  ReadInto(offset, page);
}

}  // namespace marrow
