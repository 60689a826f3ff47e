#include "store/temp_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>

namespace marrow {

std::string NewGuidText() {
  static std::mt19937_64 rng{std::random_device{}()};
  std::uint8_t b[16];
  for (int i = 0; i < 16; i += 8) {
    std::uint64_t r = rng();
    for (int k = 0; k < 8; ++k) b[i + k] = static_cast<std::uint8_t>(r >> (8 * k));
  }
  b[6] = (b[6] & 0x0F) | 0x40;
  b[8] = (b[8] & 0x3F) | 0x80;
  char text[40];
  std::snprintf(text, sizeof text, "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return text;
}

std::string DefaultTempFolder() {
  std::error_code ec;
  auto dir = std::filesystem::temp_directory_path(ec);
  return ec ? std::string("/tmp") : dir.string();
}

std::unique_ptr<TempFile> TempFile::Create(const std::string& folder, const std::string& extension) {
  std::string dir = folder.empty() ? DefaultTempFolder() : folder;
  if (dir.back() != '/') dir += '/';
  for (int attempt = 0; attempt < 4; ++attempt) {
    std::string path = dir + NewGuidText() + extension;
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) return std::unique_ptr<TempFile>(new TempFile(fd, std::move(path)));
    if (errno != EEXIST) break;
  }
  return nullptr;
}

TempFile::~TempFile() {
  ::close(fd_);
  if (!path_.empty()) ::unlink(path_.c_str());
}

void TempFile::Unlink() {
  if (!path_.empty()) ::unlink(path_.c_str());
  path_.clear();
}

bool TempFile::Append(Bytes data) {
  return WriteAt(size_, data);
}

bool TempFile::WriteAt(std::uint64_t offset, Bytes data) {
  std::size_t done = 0;
  while (done < data.size()) {
    ssize_t n = ::pwrite(fd_, data.data() + done, data.size() - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  if (offset + done > size_) size_ = offset + done;
  return true;
}

std::size_t TempFile::ReadAt(std::uint64_t offset, std::uint8_t* out, std::size_t size) const {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = ::pread(fd_, out + done, size - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

std::vector<std::uint8_t> TempFile::ReadAll() const {
  std::vector<std::uint8_t> data(size_);
  data.resize(ReadAt(0, data.data(), data.size()));
  return data;
}

}  // namespace marrow
