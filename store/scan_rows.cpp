#include "store/scan_rows.h"

#include <cstring>
#include <type_traits>

namespace marrow {
namespace {

// A node row: the four 64-bit ids in row order, then the mark.
constexpr std::size_t kNodeRecord = 4 * 8 + 1;
// A block row: id, file offset, size.
constexpr std::size_t kBlockRecord = 8 + 8 + 2;

template <typename T>
void Put(std::uint8_t* record, std::size_t at, T value) {
  std::memcpy(record + at, &value, sizeof value);
}

void Encode(const ScannedNodeRow& row, std::uint8_t* record) {
  Put(record, 0, row.nodeId);
  Put(record, 8, row.dataBlock);
  Put(record, 16, row.subnodeBlock);
  Put(record, 24, row.parent);
  record[32] = row.mark;
}

void Decode(Bytes r, ScannedNodeRow& row) {
  row = {ReadU64(r, 0), ReadU64(r, 8), ReadU64(r, 16), ReadU64(r, 24), ReadU8(r, 32)};
}

void Encode(const ScannedBlockRow& row, std::uint8_t* record) {
  Put(record, 0, row.blockId);
  Put(record, 8, row.fileOffset);
  Put(record, 16, row.size);
}

void Decode(Bytes r, ScannedBlockRow& row) {
  row = {ReadU64(r, 0), ReadU64(r, 8), ReadU16(r, 16)};
}

template <typename Row>
constexpr std::size_t RecordSize() {
  return std::is_same_v<Row, ScannedNodeRow> ? kNodeRecord : kBlockRecord;
}

}  // namespace

template <typename Row>
ScanRowList<Row>::ScanRowList(const std::string& name) : list_(name, RecordSize<Row>()) {}

template <typename Row>
void ScanRowList<Row>::Append(const Row& row) {
  std::uint8_t record[RecordSize<Row>()];
  Encode(row, record);
  list_.Append(record);
}

template <typename Row>
bool ScanRowList<Row>::Next(Row& row) {
  std::uint8_t record[RecordSize<Row>()];
  if (!list_.Next(record)) return false;
  Decode(Bytes(record, sizeof record), row);
  return true;
}

template class ScanRowList<ScannedNodeRow>;
template class ScanRowList<ScannedBlockRow>;

}  // namespace marrow
