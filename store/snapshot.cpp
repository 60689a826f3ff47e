#include "store/snapshot.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "store/byte_order.h"
#include "store/lost_item_scanner.h"
#include "store/recovery_state.h"
#include "store/store_reader.h"
#include "text/utf16.h"

namespace marrow {
namespace {

constexpr std::size_t kHeaderRead = 0x10000;
constexpr std::size_t kSourceOffset = 4;
constexpr std::size_t kTempOffset = kSourceOffset + kSnapshotPathField;
constexpr std::size_t kSizeOffset = kTempOffset + kSnapshotPathField;
constexpr std::size_t kAnsiOffset = kSizeOffset + 8;
constexpr std::size_t kLargePageOffset = kAnsiOffset + 8;
constexpr std::size_t kRawModeOffset = kLargePageOffset + 8;
// A text field's byte count is 16 bits wide.
constexpr std::size_t kMaxTextBytes = 0xFFFE;

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

class SnapshotWriter {
 public:
  explicit SnapshotWriter(std::FILE* file) : file_(file) {}
  void Bytes(const void* data, std::size_t size) { std::fwrite(data, 1, size, file_); }
  void Number(std::uint64_t v) {
    std::uint8_t b[8];
    for (int i = 0; i < 8; ++i) b[i] = static_cast<std::uint8_t>(v >> (8 * i));
    Bytes(b, 8);
  }
  void Path(const std::string& path) {
    std::vector<std::uint8_t> field = Utf8ToUtf16(path);
    field.resize(kSnapshotPathChars * 2);  // cut to the limit; the rest is zero
    field.resize(kSnapshotPathField, 0);
    Bytes(field.data(), field.size());
  }
  void Text(const std::string& text) {
    std::vector<std::uint8_t> units = Utf8ToUtf16(text);
    if (units.size() > kMaxTextBytes) units.resize(kMaxTextBytes);
    const std::uint16_t count = static_cast<std::uint16_t>(units.size());
    const std::uint8_t b[2] = {static_cast<std::uint8_t>(count), static_cast<std::uint8_t>(count >> 8)};
    Bytes(b, 2);
    Bytes(units.data(), units.size());
  }

 private:
  std::FILE* file_;
};

class SnapshotReader {
 public:
  explicit SnapshotReader(std::FILE* file) : file_(file) {}
  bool Number(std::uint64_t& v) {
    std::uint8_t b[8];
    if (std::fread(b, 1, 8, file_) != 8) return false;
    v = ReadU64(b, 0);
    return true;
  }
  bool Text(std::string& text) {
    std::uint8_t b[2];
    if (std::fread(b, 1, 2, file_) != 2) return false;
    std::vector<std::uint8_t> units(b[0] | (b[1] << 8));
    if (std::fread(units.data(), 1, units.size(), file_) != units.size()) return false;
    text = Utf16ToUtf8(units.data(), units.size());
    return true;
  }

 private:
  std::FILE* file_;
};

// Node rows of the scan, written mark first.
void WriteRowSection(SnapshotWriter& out, ScannedNodeList& rows) {
  out.Number(rows.RecordCount());
  rows.Rewind();
  ScannedNodeRow row;
  while (rows.Next(row)) {
    out.Number(row.mark);
    for (std::uint64_t v : {row.nodeId, row.dataBlock, row.subnodeBlock, row.parent}) out.Number(v);
  }
}

bool ReadRowSection(SnapshotReader& in, ScannedNodeList& rows) {
  std::uint64_t count = 0;
  if (!in.Number(count)) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint64_t v[5];
    for (std::uint64_t& x : v) {
      if (!in.Number(x)) return false;
    }
    rows.Append({v[1], v[2], v[3], v[4], static_cast<std::uint8_t>(v[0])});
  }
  return true;
}

std::string PathAt(const std::vector<std::uint8_t>& header, std::size_t offset) {
  return Utf16ToUtf8(header.data() + offset, kSnapshotPathField);
}

std::int64_t SignExtend32(std::uint64_t v) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(v));
}

}  // namespace

void WriteSnapshot(StoreReader& reader, const RecoveryState& state, const std::string& path) {
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) return;
  SnapshotWriter out(file.get());
  out.Bytes(kSnapshotMagic, 4);
  out.Path(reader.SourcePath());
  out.Path(reader.TempFolder());
  out.Number(reader.FileSize());
  out.Number(static_cast<std::uint64_t>(static_cast<std::int64_t>(reader.IsAnsi())));
  out.Number(reader.IsLargePage() ? 1 : 0);
  out.Number(state.rawMode ? 1 : 0);
  out.Number(static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(state.folderRows.size()))));
  for (const FolderRow& row : state.folderRows) {
    out.Number(row.nodeId);
    out.Number(row.dataBlock);
    out.Number(row.subnodeBlock);
    out.Number(row.parent);
  }

  LostItemScanner& scan = reader.Scanner();
  out.Number(scan.blocks.RecordCount());
  scan.blocks.Rewind();
  ScannedBlockRow block;
  while (scan.blocks.Next(block)) {
    out.Number(block.blockId);
    out.Number(block.fileOffset);
    out.Number(block.size);
  }
  WriteRowSection(out, scan.folders);
  WriteRowSection(out, scan.messages);

  out.Number(state.folders.size());
  for (const FolderRecord& f : state.folders) {
    out.Text(f.name);
    out.Text(f.containerClass);
    out.Number(f.nodeId);
    out.Number(f.parentId);
    out.Number(f.itemCount);
  }
}

bool ReadSnapshotHeader(const std::string& path, SnapshotHeader& header, std::string& error) {
  std::vector<std::uint8_t> bytes(kHeaderRead, 0);
  File file(std::fopen(path.c_str(), "rb"));
  if (file) {
    const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), file.get());
    (void)got;  // what is missing stays zero
  }
  // The fields are taken before any test, as the tests below expect.
  header.sourcePath = PathAt(bytes, kSourceOffset);
  header.tempFolder = PathAt(bytes, kTempOffset);
  header.sourceSize = ReadU64(bytes, kSizeOffset);
  header.isAnsi = static_cast<int>(SignExtend32(ReadU64(bytes, kAnsiOffset)));
  header.isLargePage = ReadU8(bytes, kLargePageOffset) != 0;
  header.rawMode = ReadU8(bytes, kRawModeOffset) != 0;

  namespace fs = std::filesystem;
  std::error_code ec;
  if (!file) {
    error = "Unable to open file";
    return false;
  }
  if (header.sourcePath.empty() || !fs::exists(header.sourcePath, ec) || fs::is_directory(header.sourcePath, ec)) {
    error = "File " + header.sourcePath + " not found";
    return false;
  }
  if (!header.tempFolder.empty() && header.tempFolder.back() != '/') header.tempFolder += '/';
  if (!header.tempFolder.empty()) fs::create_directories(header.tempFolder, ec);
  if (!fs::is_directory(header.tempFolder, ec)) {
    error = "Temp path " + header.tempFolder + " not found";
    return false;
  }
  if (std::memcmp(bytes.data(), kSnapshotMagic, 4) != 0) {
    error = "invalid snapshot file";
    return false;
  }
  return true;
}

bool ReadSnapshotBody(StoreReader& reader, RecoveryState& state, const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) return false;
  if (std::fseek(file.get(), static_cast<long>(kSnapshotNodeCountOffset), SEEK_SET) != 0) return true;
  SnapshotReader in(file.get());
  // A file cut short gives shorter lists: each section stops where the bytes do.
  std::uint64_t count = 0;
  if (!in.Number(count)) return true;
  const std::int64_t nodes = SignExtend32(count);
  for (std::int64_t i = 0; i < nodes; ++i) {
    FolderRow row{};
    if (!in.Number(row.nodeId) || !in.Number(row.dataBlock) || !in.Number(row.subnodeBlock) || !in.Number(row.parent)) {
      return true;
    }
    state.folderRows.push_back(row);
  }

  LostItemScanner& scan = reader.Scanner();
  if (!in.Number(count)) return true;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint64_t id = 0, at = 0, size = 0;
    if (!in.Number(id) || !in.Number(at) || !in.Number(size)) return true;
    scan.blocks.Append({id, at, static_cast<std::uint16_t>(size)});
  }
  if (!ReadRowSection(in, scan.folders) || !ReadRowSection(in, scan.messages)) return true;

  if (!in.Number(count)) return true;
  for (std::uint64_t i = 0; i < count; ++i) {
    FolderRecord f;
    std::uint64_t itemCount = 0;
    if (!in.Text(f.name) || !in.Text(f.containerClass) || !in.Number(f.nodeId) || !in.Number(f.parentId) ||
        !in.Number(itemCount)) {
      return true;
    }
    f.itemCount = static_cast<std::uint32_t>(itemCount);
    state.folders.push_back(std::move(f));
  }
  return true;
}

}  // namespace marrow
