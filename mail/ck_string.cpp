#include "mail/ck_string.h"

#include "text/charset_convert.h"

namespace marrow {

bool CkString::ConvertCharset(const std::string& from, const std::string& to) {
  lastError_.clear();
  for (const std::string* name : {&from, &to}) {
    if (!CharsetKnown(*name)) {
      lastError_ = "Unknown charset: " + *name;
      return false;
    }
  }
  std::string converted;
  if (!ConvertCharsetLossy(bytes_, from, to, &converted)) {
    lastError_ = "Failed to convert from " + from + " to " + to;
    return false;
  }
  bytes_ = std::move(converted);
  return true;
}

}  // namespace marrow
