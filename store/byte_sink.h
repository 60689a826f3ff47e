// Where block data is written: a growing buffer in memory or a file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/byte_order.h"
#include "store/temp_file.h"

namespace marrow {

class ByteSink {
 public:
  virtual ~ByteSink() = default;
  // Appends at the end. Returns false when the sink wants no more data
  // (a size limit was reached or the write failed); readers then stop.
  virtual bool Append(Bytes data) = 0;
};

class MemorySink final : public ByteSink {
 public:
  // `limit` bounds what the sink keeps; 0 means no bound.
  explicit MemorySink(std::size_t limit = 0) : limit_(limit) {}
  bool Append(Bytes data) override;
  const std::vector<std::uint8_t>& Data() const { return data_; }

 private:
  std::vector<std::uint8_t> data_;
  std::size_t limit_;
};

// Appends to a file opened (created or truncated) by the sink; closes it on destruction.
class FileSink final : public ByteSink {
 public:
  explicit FileSink(const std::string& path);
  ~FileSink() override;
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  bool Append(Bytes data) override;
  std::uint64_t Written() const { return written_; }

 private:
  int fd_ = -1;
  std::uint64_t written_ = 0;
};

// Keeps what it is given in memory up to `memoryLimit` bytes; past that the
// bytes move to a fresh scratch file in `folder` and the rest follows there.
class SpillSink final : public ByteSink {
 public:
  SpillSink(std::string folder, std::size_t memoryLimit) : folder_(std::move(folder)), limit_(memoryLimit) {}

  bool Append(Bytes data) override;
  std::uint64_t Written() const { return written_; }
  // No scratch file could be made when one was needed.
  bool Failed() const { return failed_; }
  // The bytes while they are in memory.
  const std::vector<std::uint8_t>& Data() const { return data_; }
  // The scratch file holding the bytes, or nullptr while they are in memory.
  TempFile* File() const { return file_.get(); }

 private:
  std::string folder_;
  std::size_t limit_;
  std::vector<std::uint8_t> data_;
  std::unique_ptr<TempFile> file_;
  std::uint64_t written_ = 0;
  bool failed_ = false;
};

}  // namespace marrow
