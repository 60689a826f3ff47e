#include "mail/file_bytes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace marrow {

bool ReadWholeFile(const std::string& path, std::string* out) {
  out->clear();
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char chunk[65536];
  bool ok = true;
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ok = false;
    if (n <= 0) break;
    out->append(chunk, static_cast<std::size_t>(n));
  }
  ::close(fd);
  if (!ok) out->clear();
  return ok;
}

bool WriteWholeFile(const std::string& path, std::string_view bytes) {
  const std::string temp = path + "." + std::to_string(::getpid()) + ".part";
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  bool complete = done == bytes.size();
  if (::close(fd) != 0) complete = false;
  if (!complete || std::rename(temp.c_str(), path.c_str()) != 0) {
    ::unlink(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace marrow
