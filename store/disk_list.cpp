#include "store/disk_list.h"

#include <cstring>

#include "store/temp_file.h"

namespace marrow {

DiskList::DiskList(const std::string& name, std::uint16_t recordSize)
    : recordSize_(recordSize ? recordSize : 1), writeBuffer_(kBufferSize), readBuffer_(kBufferSize) {
  // A GUID name in the system's temp folder. Should that fail the list keeps
  // only what its buffer holds, as a full disk would leave it.
  file_ = TempFile::Create("", "");
  if (!file_) file_ = TempFile::Create("", "." + name + ".htw");
  chunkBytes_ = static_cast<std::uint32_t>(kBufferSize / recordSize_ * recordSize_);
}

DiskList::~DiskList() = default;

const std::string& DiskList::Path() const {
  static const std::string none;
  return file_ ? file_->Path() : none;
}

void DiskList::Append(const void* record) {
  if (writeFill_ + recordSize_ > kBufferSize) {
    if (file_ && file_->WriteAt(fileLength_, Bytes(writeBuffer_.data(), writeFill_))) fileLength_ += writeFill_;
    writeFill_ = 0;
  }
  ++recordCount_;
  std::memcpy(writeBuffer_.data() + writeFill_, record, recordSize_);
  writeFill_ += recordSize_;
}

void DiskList::Rewind() {
  chunkBytes_ = static_cast<std::uint32_t>(kBufferSize / recordSize_ * recordSize_);
  chunkCount_ = fileLength_ / chunkBytes_;
  chunkIndex_ = 0;
  chunkPos_ = 0;
  readCount_ = 0;
  inTail_ = false;
  exhausted_ = false;
}

bool DiskList::LoadChunk() {
  if (std::uint64_t{chunkBytes_} * chunkIndex_ < fileLength_) {
    file_->ReadAt(std::uint64_t{chunkBytes_} * chunkIndex_, readBuffer_.data(), chunkBytes_);
    ++chunkIndex_;
    return true;
  }
  // The records still in the write buffer are read from there, so a list
  // can be read at once after writing.
  if (!inTail_ && writeFill_ != 0) {
    inTail_ = true;
    std::memcpy(readBuffer_.data(), writeBuffer_.data(), writeFill_);
    chunkBytes_ = writeFill_;
    chunkPos_ = 0;
    return true;
  }
  return false;
}

bool DiskList::Next(void* record) {
  if (exhausted_) return false;
  if (chunkPos_ == 0 && !LoadChunk()) return false;
  std::memcpy(record, readBuffer_.data() + chunkPos_, recordSize_);
  chunkPos_ += recordSize_;
  ++readCount_;
  if (inTail_) {
    if (chunkPos_ < chunkBytes_) return true;
    exhausted_ = true;
  }
  if (chunkPos_ >= chunkBytes_) chunkPos_ = 0;
  return true;
}

bool DiskList::Contains(const void* record) {
  for (std::uint32_t at = 0; at + recordSize_ <= writeFill_; at += recordSize_) {
    if (std::memcmp(writeBuffer_.data() + at, record, recordSize_) == 0) return true;
  }
  if (fileLength_ == 0 || !file_) return false;
  const std::uint32_t chunk = static_cast<std::uint32_t>(kBufferSize / recordSize_ * recordSize_);
  std::vector<std::uint8_t> buffer(chunk);
  for (std::uint64_t c = 0; c < fileLength_ / chunk; ++c) {
    file_->ReadAt(c * chunk, buffer.data(), chunk);
    for (std::uint32_t at = 0; at + recordSize_ <= chunk; at += recordSize_) {
      if (std::memcmp(buffer.data() + at, record, recordSize_) == 0) return true;
    }
  }
  return false;
}

}  // namespace marrow
