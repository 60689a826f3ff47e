// Heaps: property lists and tables inside a node's normalised data block.
#include "store/heap_map.h"
#include "store/property_bag.h"
#include "store/store_reader.h"
#include "store/temp_file.h"

namespace marrow {
namespace {

constexpr std::uint8_t kTreeSignature = 0xB5;
constexpr std::uint16_t kAttachDataObject = 0x3701;
constexpr std::uint16_t kHeadersOnlyException = 0x007D;  // transport headers, wanted even then

bool IsSubnodeReference(std::uint32_t value) {
  return (value & 0xF) == 0xF;
}

}  // namespace

bool StoreReader::ResolveHeapId(Bytes buffer, std::uint64_t base, std::uint32_t heapId, std::uint64_t& start,
                                std::uint64_t& end, const std::vector<HeapSegment>* segments) {
  // Twice the allocation index, plus a bit that is 0 in good ids. The
  // 4096-byte form keeps three more index bits, and its segment number above them.
  const std::uint32_t k = IsLargePage() ? (heapId >> 4) & 0x7FFF : (heapId >> 4) & 0xFFF;
  if (k == 0) return false;
  const std::uint32_t segment = IsLargePage() ? heapId >> 19 : heapId >> 16;
  std::uint64_t mapBase = base;
  std::uint64_t shift = 0;
  start = end = 0;
  if (segment != 0) {
    if (segments == nullptr || segment >= segments->size()) return true;
    shift = (*segments)[segment].start;
    mapBase = shift + ReadU16(buffer, shift);
  }
  const std::uint64_t at = mapBase + k + 2;
  if (at + 4 > buffer.size()) return true;
  const std::uint64_t s = ReadU16(buffer, at) + shift;
  const std::uint64_t e = ReadU16(buffer, at + 2) + shift;
  if (e <= s || e > buffer.size()) return false;
  start = s;
  end = e;
  return true;
}

bool StoreReader::ReadHeapValue(Bytes buffer, std::uint64_t mapBase, std::uint16_t id, std::uint16_t type,
                                std::uint32_t value, const std::vector<HeapSegment>* segments,
                                const SubnodeLists& subnodes, bool skipSubnodes, PropertyValue& out) {
  if (IsInlineType(type)) {
    out = PropertyValue::FromU32(id, type, value);
    return true;
  }
  if (IsSubnodeReference(value)) {
    // Attachments are read on demand: the value is the reference itself.
    if (id == kAttachDataObject) {
      out = PropertyValue::FromU32(id, type, value);
      return true;
    }
    if (skipSubnodes && id != kHeadersOnlyException) return false;
    SpillSink sink(tempFolder_, valueMemoryLimit_);
    std::uint64_t child = 0;
    ReadSubnodeInto(value, subnodes, sink, child);
    if (sink.Failed() || sink.Written() == 0) return false;
    if (TempFile* file = sink.File()) {
      out = PropertyValue::Spilled(id, type, file->Path(), static_cast<std::uint32_t>(sink.Written()));
      file->KeepFile();
    } else {
      out = PropertyValue::InMemory(id, type, sink.Data().data(), sink.Data().size());
    }
    return true;
  }
  if (value == 0) return false;
  std::uint64_t start = 0, end = 0;
  ResolveHeapId(buffer, mapBase, value, start, end, segments);
  if (start == 0) return false;
  out = PropertyValue::InMemory(id, type, buffer.data() + start, end - start);
  return true;
}

void StoreReader::ReadPropertyBag(Bytes buffer, PropertyBag* bag, std::vector<PropertyBag>* rows,
                                  const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes,
                                  bool headersOnly, bool wantTable) {
  if (buffer.size() < 0x10 || buffer[2] != kHeapSignature) return;
  const std::size_t m = ReadU16(buffer, 0);
  if (buffer.size() < m + 4) return;
  const std::uint16_t allocations = ReadU16(buffer, m);
  if (buffer.size() < m + 6 + 2 * std::size_t{allocations}) return;
  const HeapMap map = BuildHeapMap(buffer, m, m + 4, std::size_t{allocations} + 1);
  const std::uint8_t client = buffer[3];

  if (client == kHeapClientPropertyList && allocations >= 3 && bag != nullptr && !map.starts.empty()) {
    const std::size_t o = map.starts[0];
    if (buffer.size() <= o + 8 || m <= o + 8) return;
    // Key size 2 and value size 6: a one-level record list.
    if (buffer[o] != kTreeSignature || buffer[o + 1] != 2 || buffer[o + 2] != 6) return;
    std::uint64_t start = 0, end = 0;
    ResolveHeapId(buffer, m, ReadU32(buffer, o + 4), start, end, segments);
    if (start == 0) return;
    for (std::uint64_t r = start; r + 8 <= end; r += 8) {
      PropertyValue value;
      if (ReadHeapValue(buffer, m, ReadU16(buffer, r), ReadU16(buffer, r + 2), ReadU32(buffer, r + 4), segments,
                        subnodes, headersOnly, value) &&
          value.size != 0) {
        bag->Append(std::move(value));
      }
    }
    return;
  }
  if (client == kHeapClientTable && wantTable && rows != nullptr) ReadTableRows(buffer, map, rows, segments, subnodes);
}

void StoreReader::ReadTableRows(Bytes buffer, const HeapMap& map, std::vector<PropertyBag>* rows,
                                const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes) {
  const std::size_t m = map.mapOffset;
  std::uint64_t info = 0, infoEnd = 0;
  ResolveHeapId(buffer, m, ReadU32(buffer, 4), info, infoEnd, segments);
  if (info == 0 || buffer[info] != kHeapClientTable) return;
  const unsigned columns = buffer[info + 1];
  const std::uint16_t rowSize = ReadU16(buffer, info + 8);

  // The row index only gives the number of rows: six bytes an entry, in
  // every form, whatever the entry size of the index really is.
  std::uint64_t index = 0, indexEnd = 0;
  ResolveHeapId(buffer, m, ReadU32(buffer, info + 10), index, indexEnd, segments);
  if (index == 0 || ReadU16(buffer, index) != 0x04B5 || ReadU32(buffer, index + 4) == 0) return;
  std::uint64_t keys = 0, keysEnd = 0;
  ResolveHeapId(buffer, m, ReadU32(buffer, index + 4), keys, keysEnd, segments);
  const std::uint64_t count = keys == 0 ? 0 : (keysEnd - keys) / 6;

  std::uint64_t data = 0, dataEnd = 0;
  ResolveHeapId(buffer, m, ReadU32(buffer, info + 14), data, dataEnd, segments);
  if (data == 0) {
    if (map.allocations <= 2 || map.starts.size() <= 2 || map.starts[2] >= buffer.size()) return;
    data = map.starts[2];
  }
  for (std::uint64_t row = 0; row < count; ++row) {
    const std::uint64_t base = data + row * rowSize;
    PropertyBag bag;
    std::uint32_t v = 0;
    for (unsigned c = 0; c < columns; ++c) {
      const std::uint64_t column = info + 22 + 8 * std::uint64_t{c};
      const std::uint32_t tag = ReadU32(buffer, column);
      const std::uint64_t at = base + ReadU16(buffer, column + 4);
      if (at + 4 <= buffer.size()) v = ReadU32(buffer, at);
      const std::uint16_t id = static_cast<std::uint16_t>(tag >> 16);
      const std::uint16_t type = static_cast<std::uint16_t>(tag);
      PropertyValue value;
      if (ReadHeapValue(buffer, m, id, type, v, segments, subnodes, false, value) && value.size != 0) {
        bag.Append(std::move(value));
      } else if (id == kAttachDataObject) {
        bag.Append(PropertyValue::FromU32(id, type, v));
      }
    }
    rows->push_back(std::move(bag));
  }
}

bool StoreReader::ReadBagFromBlock(std::uint64_t dataBlock, PropertyBag& bag, const SubnodeLists& subnodes) {
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!FindBlock(BlockRoot(), dataBlock, offset, size, visited)) return false;
  return ReadBagAt(offset, size, dataBlock, bag, subnodes);
}

bool StoreReader::ReadBagAt(std::uint64_t offset, std::uint64_t size, std::uint64_t blockId, PropertyBag& bag,
                            const SubnodeLists& subnodes) {
  if (size > kMaxBlockSize || offset >= FileSize()) return false;
  std::vector<std::uint8_t> block = ReadAt(offset, size);
  std::vector<HeapSegment> segments;
  NormalizeBlock(block, blockId, &segments);
  ReadPropertyBag(block, &bag, nullptr, &segments, subnodes, false, false);
  return true;
}

}  // namespace marrow
