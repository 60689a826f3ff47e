// Scratch files named by a fresh GUID, removed when the owner lets go of them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/byte_order.h"

namespace marrow {

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" from a random version-4 GUID.
std::string NewGuidText();

// The folder for scratch files when the caller named none: the system temp dir.
std::string DefaultTempFolder();

class TempFile {
 public:
  // Creates "<folder>/<guid><extension>" for reading and writing; nullptr when
  // the folder does not exist or cannot be written. An empty folder means the
  // system's temporary folder.
  static std::unique_ptr<TempFile> Create(const std::string& folder, const std::string& extension);
  ~TempFile();  // closes and deletes the file
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const std::string& Path() const { return path_; }
  // Removes the name now; the open file stays usable until destruction. A
  // scratch file that is never opened by name again should do this at once,
  // so that a process killed mid-way leaves nothing behind.
  void Unlink();
  // Closes the file but leaves it on disk: its path now belongs to someone else.
  void KeepFile() { path_.clear(); }
  std::uint64_t Size() const { return size_; }
  bool Append(Bytes data);
  bool WriteAt(std::uint64_t offset, Bytes data);
  std::vector<std::uint8_t> ReadAll() const;
  // Reads up to `size` bytes at `offset`; returns how many were read.
  std::size_t ReadAt(std::uint64_t offset, std::uint8_t* out, std::size_t size) const;

 private:
  TempFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  int fd_;
  std::string path_;
  std::uint64_t size_ = 0;
};

}  // namespace marrow
