#include "store/byte_source.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace marrow {

std::size_t MemorySource::ReadAt(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (offset >= data_.size() || out.empty()) return 0;
  std::size_t n = std::min<std::uint64_t>(out.size(), data_.size() - offset);
  std::memcpy(out.data(), data_.data() + offset, n);
  return n;
}

std::unique_ptr<FileSource> FileSource::Open(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    return nullptr;
  }
  return std::unique_ptr<FileSource>(new FileSource(fd, static_cast<std::uint64_t>(st.st_size)));
}

FileSource::~FileSource() {
  ::close(fd_);
}

std::size_t FileSource::ReadAt(std::uint64_t offset, std::span<std::uint8_t> out) {
  std::size_t done = 0;
  while (done < out.size()) {
    if (offset + done > static_cast<std::uint64_t>(INT64_MAX)) break;
    ssize_t n = ::pread(fd_, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

}  // namespace marrow
