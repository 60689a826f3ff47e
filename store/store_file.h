// The open file of a store and what its header and its blocks tell of it:
// the form, the roots of the two indexes, and the encoding the blocks read
// so far vote for.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "store/byte_source.h"
#include "store/page_layout.h"

namespace marrow {

// Form of a store as its version word tells it.
struct StoreForm {
  int isAnsi;
  bool isLargePage;
};
StoreForm FormForVersion(std::uint16_t versionWord);

// Header fields as read at open.
struct StoreHeader {
  std::uint16_t versionWord = 0;
  std::uint8_t cryptByte = 0;
  std::uint64_t nodeRootOffset = 0;  // the 32-bit form's roots are sign-extended
  std::uint64_t blockRootOffset = 0;
};

// Blocks that became a heap as they were (none) or after one of the two decodings.
struct CryptVotes {
  std::int64_t none = 0;
  std::int64_t permute = 0;
  std::int64_t cyclic = 0;
};

class StoreFile {
 public:
  // Opens with exclusive access. Fails only when the file cannot be opened;
  // a header that lies is not refused.
  bool OpenStore(const std::string& path);
  // The same over any byte source (tests and fuzzing feed memory).
  bool OpenSource(std::unique_ptr<ByteSource> source, const std::string& path = {});
  bool IsOpen() const { return source_ != nullptr; }
  std::uint64_t FileSize() const { return source_ ? source_->Size() : 0; }
  const std::string& SourcePath() const { return path_; }
  const std::string& LastError() const { return lastError_; }
  // Counts the opens, so that what was learnt of one file is not used for the next.
  std::uint32_t Generation() const { return generation_; }

  const StoreHeader& Header() const { return header_; }
  std::uint64_t NodeRoot() const { return header_.nodeRootOffset; }
  std::uint64_t BlockRoot() const { return header_.blockRootOffset; }
  // Walks from other roots than the header's (a damaged header, or fuzzing).
  void SetRoots(std::uint64_t nodeRootOffset, std::uint64_t blockRootOffset);

  int IsAnsi() const { return isAnsi_; }
  void SetAnsi(int isAnsi) { isAnsi_ = isAnsi; }
  bool IsLargePage() const { return isLargePage_; }
  void SetLargePage(bool isLargePage) { isLargePage_ = isLargePage; }
  const PageLayout& Layout() const { return LayoutFor(isAnsi_ != 0, isLargePage_); }

  int CryptMethod() const { return cryptMethod_; }
  const CryptVotes& Votes() const { return votes_; }
  void SetVotes(const CryptVotes& votes) { votes_ = votes; }
  // One more vote for `method`, then the verdict taken again.
  void Vote(int method);
  // The method with strictly the most votes wins; a tie takes `fallback`.
  void UpdateCryptMethod(int fallback);

  // Reads `size` bytes at `offset` into a zeroed buffer (short at the end of the file).
  std::vector<std::uint8_t> ReadAt(std::uint64_t offset, std::size_t size);
  // Reads into `out` as far as the file goes; the rest of `out` is left as it was.
  std::size_t ReadInto(std::uint64_t offset, std::span<std::uint8_t> out) {
    return source_ ? source_->ReadAt(offset, out) : 0;
  }

 private:
  std::unique_ptr<ByteSource> source_;
  std::string path_;
  std::string lastError_;
  std::uint32_t generation_ = 0;
  StoreHeader header_;
  int isAnsi_ = 1;
  bool isLargePage_ = false;
  int cryptMethod_ = 0;
  CryptVotes votes_;
};

}  // namespace marrow
