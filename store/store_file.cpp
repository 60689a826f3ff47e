#include "store/store_file.h"

#include "store/block_codec.h"
#include "store/byte_order.h"

namespace marrow {
namespace {

// Header fields read at open.
constexpr std::size_t kHeaderBufferSize = 0x10000;
constexpr std::size_t kVersionOffset = 0x0A;
constexpr std::size_t kAnsiNodeRootOffset = 0xBC;
constexpr std::size_t kAnsiBlockRootOffset = 0xC4;
constexpr std::size_t kAnsiCryptOffset = 0x1CD;
constexpr std::size_t kNodeRootOffset64 = 0xE0;
constexpr std::size_t kBlockRootOffset64 = 0xF0;
constexpr std::size_t kCryptOffset64 = 0x201;

std::uint64_t SignExtend32(std::uint32_t v) {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(v)));
}

}  // namespace

StoreForm FormForVersion(std::uint16_t version) {
  // Every value gets a form; an empty or destroyed header reads as the
  // 32-bit form and the recovery ladder tries the others.
  if (version == 0x15 || version == 0x17) return {0, false};
  if (version >= 0x23) return {0, true};
  return {1, false};
}

bool StoreFile::OpenStore(const std::string& path) {
  path_ = path;
  source_.reset();
  ++generation_;
  std::unique_ptr<FileSource> source = FileSource::Open(path);
  if (!source) {
    lastError_ = "Unable to open sorce file";
    return false;
  }
  return OpenSource(std::move(source), path);
}

bool StoreFile::OpenSource(std::unique_ptr<ByteSource> source, const std::string& path) {
  path_ = path;
  source_ = std::move(source);
  ++generation_;
  if (!source_) {
    lastError_ = "Unable to open sorce file";
    return false;
  }
  std::vector<std::uint8_t> bytes = ReadAt(0, kHeaderBufferSize);
  Bytes h(bytes);
  header_.versionWord = ReadU16(h, kVersionOffset);
  const StoreForm form = FormForVersion(header_.versionWord);
  SetLargePage(form.isLargePage);
  SetAnsi(form.isAnsi);
  header_.cryptByte = ReadU8(h, form.isAnsi ? kAnsiCryptOffset : kCryptOffset64);
  UpdateCryptMethod(header_.cryptByte);
  if (form.isAnsi) {
    header_.nodeRootOffset = SignExtend32(ReadU32(h, kAnsiNodeRootOffset));
    header_.blockRootOffset = SignExtend32(ReadU32(h, kAnsiBlockRootOffset));
  } else {
    header_.nodeRootOffset = ReadU64(h, kNodeRootOffset64);
    header_.blockRootOffset = ReadU64(h, kBlockRootOffset64);
  }
  // A root beyond the end of the file does not fail the open: the walks
  // simply find nothing there.
  return true;
}

void StoreFile::SetRoots(std::uint64_t nodeRootOffset, std::uint64_t blockRootOffset) {
  header_.nodeRootOffset = nodeRootOffset;
  header_.blockRootOffset = blockRootOffset;
}

void StoreFile::Vote(int method) {
  ++(method == kCryptPermute ? votes_.permute : method == kCryptCyclic ? votes_.cyclic : votes_.none);
  UpdateCryptMethod(method);
}

void StoreFile::UpdateCryptMethod(int fallback) {
  const CryptVotes& v = votes_;
  if (v.none > v.permute && v.none > v.cyclic) {
    cryptMethod_ = 0;
  } else if (v.permute > v.none && v.permute > v.cyclic) {
    cryptMethod_ = 1;
  } else if (v.cyclic > v.none && v.cyclic > v.permute) {
    cryptMethod_ = 2;
  } else {
    cryptMethod_ = fallback;
  }
}

std::vector<std::uint8_t> StoreFile::ReadAt(std::uint64_t offset, std::size_t size) {
  std::vector<std::uint8_t> data(size, 0);
  ReadInto(offset, data);
  return data;
}

}  // namespace marrow
