// A list of fixed-size records kept in a temporary file, with an append
// buffer and one read cursor. A table keeps each row as one record (see
// scan_rows.h); a row's index is never stored.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/byte_order.h"

namespace marrow {

class TempFile;

class DiskList {
 public:
  static constexpr std::size_t kBufferSize = 0x10000;

  // `name` matters only where the temp path would be too long for a GUID name.
  DiskList(const std::string& name, std::uint16_t recordSize);
  virtual ~DiskList();  // removes the file
  DiskList(const DiskList&) = delete;
  DiskList& operator=(const DiskList&) = delete;

  void Append(const void* record);
  void Rewind();
  // Copies the next record into `record`; false at the end, and after it.
  bool Next(void* record);
  // Searches every record, written or still buffered. Leaves the read cursor alone.
  bool Contains(const void* record);

  std::uint32_t RecordCount() const { return recordCount_; }
  std::uint32_t ReadCount() const { return readCount_; }
  std::uint16_t RecordSize() const { return recordSize_; }
  const std::string& Path() const;

  // Typed helpers for the common record widths.
  void AppendU64(std::uint64_t v) { Append(&v); }
  bool NextU64(std::uint64_t& v) { return Next(&v); }

 private:
  std::uint64_t FileLength() const { return fileLength_; }
  bool LoadChunk();

  std::uint16_t recordSize_;
  std::unique_ptr<TempFile> file_;
  std::uint64_t fileLength_ = 0;
  std::vector<std::uint8_t> writeBuffer_;
  std::uint32_t writeFill_ = 0;
  std::uint32_t recordCount_ = 0;
  std::uint32_t readCount_ = 0;
  std::vector<std::uint8_t> readBuffer_;
  std::uint32_t chunkBytes_ = 0;
  std::uint64_t chunkCount_ = 0;
  std::uint64_t chunkIndex_ = 0;
  std::uint32_t chunkPos_ = 0;
  bool inTail_ = false;
  bool exhausted_ = false;
};

}  // namespace marrow
