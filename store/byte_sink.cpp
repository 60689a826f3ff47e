#include "store/byte_sink.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace marrow {

bool MemorySink::Append(Bytes data) {
  if (limit_ != 0 && data.size() > limit_ - data_.size()) {
    data_.insert(data_.end(), data.begin(), data.begin() + (limit_ - data_.size()));
    return false;
  }
  data_.insert(data_.end(), data.begin(), data.end());
  return limit_ == 0 || data_.size() < limit_;
}

FileSink::FileSink(const std::string& path) {
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

FileSink::~FileSink() {
  if (fd_ >= 0) ::close(fd_);
}

bool FileSink::Append(Bytes data) {
  if (fd_ < 0) return false;
  std::size_t done = 0;
  while (done < data.size()) {
    ssize_t n = ::write(fd_, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  written_ += done;
  return true;
}

bool SpillSink::Append(Bytes data) {
  if (failed_) return false;
  if (!file_ && data.size() <= limit_ - std::min(limit_, data_.size())) {
    data_.insert(data_.end(), data.begin(), data.end());
    written_ += data.size();
    return true;
  }
  if (!file_) {
    file_ = TempFile::Create(folder_, ".Bin");
    if (!file_) {
      failed_ = true;
      return false;
    }
    if (!file_->Append(data_)) return false;
    data_ = {};
  }
  if (!file_->Append(data)) return false;
  written_ += data.size();
  return true;
}

}  // namespace marrow
