// Where a store's bytes come from: an open file or a buffer in memory.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace marrow {

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual std::uint64_t Size() const = 0;
  // Copies up to out.size() bytes from `offset`; returns how many were copied.
  // A read at or past the end copies nothing.
  virtual std::size_t ReadAt(std::uint64_t offset, std::span<std::uint8_t> out) = 0;
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::vector<std::uint8_t> data) : data_(std::move(data)) {}
  std::uint64_t Size() const override { return data_.size(); }
  std::size_t ReadAt(std::uint64_t offset, std::span<std::uint8_t> out) override;

 private:
  std::vector<std::uint8_t> data_;
};

// A file opened read-only and held with an exclusive lock for as long as the
// object lives, so that a second reader of the same store is refused.
class FileSource final : public ByteSource {
 public:
  static std::unique_ptr<FileSource> Open(const std::string& path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::uint64_t Size() const override { return size_; }
  std::size_t ReadAt(std::uint64_t offset, std::span<std::uint8_t> out) override;

 private:
  FileSource(int fd, std::uint64_t size) : fd_(fd), size_(size) {}
  int fd_;
  std::uint64_t size_;
};

}  // namespace marrow
