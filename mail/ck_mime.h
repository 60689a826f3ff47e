// A MIME entity read from a file, for repairs to its top-level header.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace marrow {

// Holds one entity with every header field in its stored order. Used on
// headers-only files whose multipart boundary names parts that are gone:
// the boundary is replaced and the file written back with its fields intact.
class CkMime {
 public:
  CkMime();
  ~CkMime();
  CkMime(const CkMime&) = delete;
  CkMime& operator=(const CkMime&) = delete;

  // False, with the entity unchanged, when the file cannot be read or holds
  // nothing that parses as MIME.
  bool LoadMimeFile(const std::string& path);
  bool LoadMime(std::string_view text);

  // The boundary parameter of the top-level Content-Type; "" when it has none.
  std::string GetBoundary() const;
  // Sets (or adds) the boundary parameter; false when nothing is loaded.
  bool SetBoundary(const std::string& boundary);

  // The entity as MIME text with CRLF line ends, written to a temporary name
  // and renamed over `path` when complete.
  bool SaveMime(const std::string& path);
  std::string GetMime() const;

  const std::string& LastErrorText() const { return lastError_; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::string lastError_;
};

}  // namespace marrow
