// A string of bytes that knows how to change charset.
#pragma once

#include <string>

namespace marrow {

// Holds bytes, normally UTF-8 text. After ConvertCharset the bytes are in the
// target charset and GetString hands them back as they are.
class CkString {
 public:
  CkString() = default;
  explicit CkString(std::string text) : bytes_(std::move(text)) {}

  void SetString(std::string text) { bytes_ = std::move(text); }
  const std::string& GetString() const { return bytes_; }

  // Re-encodes the bytes from one charset to another. "ansi" is
  // Windows-1252, "utf-8" UTF-8, "utf-16"/"unicode" UTF-16LE; other names go
  // to iconv. Undecodable bytes become U+FFFD, and characters the target
  // lacks become U+FFFD or "?" in the 8-bit charsets. False, with the bytes
  // unchanged, when a charset name is unknown.
  bool ConvertCharset(const std::string& from, const std::string& to);

  const std::string& LastErrorText() const { return lastError_; }

 private:
  std::string bytes_;
  std::string lastError_;
};

}  // namespace marrow
