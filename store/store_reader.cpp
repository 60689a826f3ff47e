#include "store/store_reader.h"

#include "store/lost_item_scanner.h"

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

StoreReader::StoreReader(std::string folder)
    : tempFolder(std::move(folder)), scanner_(std::make_unique<LostItemScanner>(*this)) {
  scan_ = scanner_.get();
}

StoreReader::~StoreReader() = default;

bool StoreReader::OpenStore(const std::string& path) {
  sourcePath = path;
  file_.reset();
  blockMemo_.clear();
  std::unique_ptr<FileSource> source = FileSource::Open(path);
  if (!source) {
    lastError = "Unable to open sorce file";
    return false;
  }
  return OpenSource(std::move(source), path);
}

bool StoreReader::OpenSource(std::unique_ptr<ByteSource> source, const std::string& path) {
  sourcePath = path;
  file_ = std::move(source);
  blockMemo_.clear();
  if (!file_) {
    lastError = "Unable to open sorce file";
    return false;
  }
  std::vector<std::uint8_t> header = ReadAt(0, kHeaderBufferSize);
  Bytes h(header);
  versionWord = ReadU16(h, kVersionOffset);
  StoreForm form = FormForVersion(versionWord);
  SetLargePage(form.isLargePage);
  SetAnsi(form.isAnsi);
  cryptByte = ReadU8(h, form.isAnsi ? kAnsiCryptOffset : kCryptOffset64);
  UpdateCryptMethod(cryptByte);
  if (form.isAnsi) {
    nodeRootOffset = SignExtend32(ReadU32(h, kAnsiNodeRootOffset));
    blockRootOffset = SignExtend32(ReadU32(h, kAnsiBlockRootOffset));
  } else {
    nodeRootOffset = ReadU64(h, kNodeRootOffset64);
    blockRootOffset = ReadU64(h, kBlockRootOffset64);
  }
  // A root beyond the end of the file does not fail the open: the walks
  // simply find nothing there.
  return true;
}

void StoreReader::UpdateCryptMethod(int fallback) {
  if (noneVotes > permuteVotes && noneVotes > cyclicVotes) {
    cryptMethod_ = 0;
  } else if (permuteVotes > noneVotes && permuteVotes > cyclicVotes) {
    cryptMethod_ = 1;
  } else if (cyclicVotes > noneVotes && cyclicVotes > permuteVotes) {
    cryptMethod_ = 2;
  } else {
    cryptMethod_ = fallback;
  }
}

std::vector<std::uint8_t> StoreReader::ReadAt(std::uint64_t offset, std::size_t size) {
  std::vector<std::uint8_t> data(size, 0);
  ReadInto(offset, data);
  return data;
}

void StoreReader::ReadPage(std::uint64_t offset, std::vector<std::uint8_t>& page) {
  page.assign(Layout().pageSize, 0);
  ReadInto(offset, page);
}

}  // namespace marrow
