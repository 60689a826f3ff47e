// What the whole-file scan offers the index walks once it has run ("deep mode").
#pragma once

#include <cstdint>

#include "store/byte_order.h"

namespace marrow {

class ScanIndex {
 public:
  virtual ~ScanIndex() = default;
  // Takes every node row of a node index page that a deep walk meets.
  virtual void ExtractNodeRows(Bytes page) = 0;
  // Looks a block up in the rows the scan recorded; the first match wins.
  virtual bool ScanFindBlock(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) = 0;
};

}  // namespace marrow
