// A buffer read as a heap, and the promises every value it gives must keep;
// shared by the heap target and the store target, which reaches heaps
// through real items (subnodes, spilled values).
#pragma once

#include <filesystem>

#include "content/property_values.h"
#include "content/rtf_body.h"
#include "content/value_format.h"
#include "store/store_reader.h"
#include "tests/fuzz/fuzz_support.h"

namespace marrow::fuzz {

// Every value is whole: never empty, in memory with its two closing zeros, or
// in a spill file of the size it claims. With a scratch folder, also what the
// property view and the body writer make of the bag.
inline void CheckBag(const PropertyBag& bag, const std::string& scratch) {
  for (const PropertyValue& v : bag.Values()) {
    Check(v.size != 0, "a heap gave an empty value");
    if (v.spillPath.empty()) {
      Check(v.data.size() == std::size_t{v.size} + 2, "a value's bytes do not match its size");
      Check(v.data[v.size] == 0 && v.data[v.size + 1] == 0, "a value lacks its two closing zeros");
    } else {
      std::error_code ec;
      Check(v.data.empty(), "a spilled value also holds bytes");
      Check(std::filesystem::file_size(v.spillPath, ec) == v.size && !ec, "a spill file differs from its size");
    }
    if (!scratch.empty()) {
      FormatValue(bag, v.propId, v.propType);
      GetString(bag, v.propId, true, 932);
    }
  }
  if (scratch.empty()) return;
  const std::string rtf = scratch + "/body.rtf";
  WriteRtfBody(bag, rtf);
  std::remove(rtf.c_str());
}

// As a property list and a table, then headers only.
inline void ReadHeap(StoreReader& reader, Bytes buffer, const std::vector<HeapSegment>* segments,
                     const SubnodeLists& subnodes) {
  PropertyBag bag, headers;
  std::vector<PropertyBag> rows;
  reader.ReadPropertyBag(buffer, &bag, &rows, segments, subnodes, false, true);
  CheckBag(bag, reader.TempFolder());
  for (const PropertyBag& row : rows) CheckBag(row, {});
  reader.ReadPropertyBag(buffer, &headers, nullptr, segments, subnodes, true, false);
  CheckBag(headers, {});
}

}  // namespace marrow::fuzz
