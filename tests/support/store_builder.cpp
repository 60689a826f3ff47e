#include "tests/support/store_builder.h"

#include <zlib.h>

#include <gtest/gtest.h>

#include "store/lost_item_scanner.h"

namespace marrow::test {

const char* FormName(Form form) {
  return form == Form::Ansi512 ? "Ansi512" : form == Form::Unicode512 ? "Unicode512" : "Unicode4096";
}

StoreBuilder::StoreBuilder(Form form, std::size_t fileSize) : form_(form), bytes_(fileSize, 0) {
  bytes_[0] = '!';
  bytes_[1] = 'B';
  bytes_[2] = 'D';
  bytes_[3] = 'N';
  VersionWord(form == Form::Ansi512 ? 0x0E : form == Form::Unicode512 ? 0x17 : 0x24);
}

std::size_t StoreBuilder::PageSize() const {
  return form_ == Form::Unicode4096 ? 4096 : 512;
}

void StoreBuilder::Ensure(std::uint64_t end) {
  if (end > bytes_.size()) bytes_.resize(end, 0);
}

void StoreBuilder::PutLE(std::uint64_t at, std::uint64_t v, int width) {
  Ensure(at + width);
  for (int i = 0; i < width; ++i) bytes_[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

void StoreBuilder::Put(std::uint64_t at, const std::vector<std::uint8_t>& data) {
  Ensure(at + data.size());
  std::copy(data.begin(), data.end(), bytes_.begin() + at);
}

std::uint64_t StoreBuilder::Block(std::uint64_t at, std::uint64_t blockId, const std::vector<std::uint8_t>& data) {
  const bool large = form_ == Form::Unicode4096;
  const std::uint64_t unit = large ? 512 : 64;
  const std::uint64_t trailer = Ansi() ? 12 : 16;  // what a block's length counts
  const std::uint64_t units = (data.size() + trailer + unit - 1) / unit;
  const std::uint64_t end = at + units * unit;
  Ensure(end);
  Put(at, data);
  std::uint64_t x = at ^ blockId;
  if (Ansi()) x &= 0xFFFFFFFFu;
  const std::uint16_t signature = static_cast<std::uint16_t>(x ^ (x >> 16));
  const std::uint32_t crc = BlockChecksum(data);
  const std::uint64_t u = end - unit;
  if (Ansi()) {
    PutLE(u + 0x34, data.size(), 2);
    PutLE(u + 0x36, signature, 2);
    PutLE(u + 0x38, blockId, 4);
    PutLE(u + 0x3C, crc, 4);
  } else if (!large) {
    PutLE(u + 0x30, data.size(), 2);
    PutLE(u + 0x32, signature, 2);
    PutLE(u + 0x34, crc, 4);
    PutLE(u + 0x38, blockId, 8);
  } else {
    PutLE(u + 0x1E8, data.size(), 2);
    PutLE(u + 0x1EA, signature, 2);
    PutLE(u + 0x1EC, crc, 4);
    PutLE(u + 0x1F0, blockId, 8);
  }
  return end;
}

void StoreBuilder::VersionWord(std::uint16_t version) {
  PutLE(0x0A, version, 2);
}

void StoreBuilder::CryptByte(std::uint8_t method) {
  PutLE(Ansi() ? 0x1CD : 0x201, method, 1);
}

void StoreBuilder::Roots(std::uint64_t nodeRoot, std::uint64_t blockRoot) {
  if (Ansi()) {
    PutLE(0xBC, nodeRoot, 4);
    PutLE(0xC4, blockRoot, 4);
  } else {
    PutLE(0xE0, nodeRoot, 8);
    PutLE(0xF0, blockRoot, 8);
  }
}

void StoreBuilder::WriteTrailer(std::uint64_t at, unsigned count, unsigned max, unsigned size, unsigned level,
                                unsigned type, const Trailer& t) {
  count = t.count >= 0 ? t.count : count;
  max = t.max >= 0 ? t.max : max;
  size = t.size >= 0 ? t.size : size;
  level = t.level >= 0 ? t.level : level;
  type = t.type >= 0 ? t.type : type;
  switch (form_) {
    case Form::Ansi512:
      PutLE(at + 0x1F0, count, 1);
      PutLE(at + 0x1F1, max, 1);
      PutLE(at + 0x1F2, size, 1);
      PutLE(at + 0x1F3, level, 1);
      PutLE(at + 0x1F4, type, 1);
      PutLE(at + 0x1F5, type, 1);
      break;
    case Form::Unicode512:
      PutLE(at + 0x1E8, count, 1);
      PutLE(at + 0x1E9, max, 1);
      PutLE(at + 0x1EA, size, 1);
      PutLE(at + 0x1EB, level, 1);
      PutLE(at + 0x1F0, type, 1);
      PutLE(at + 0x1F1, type, 1);
      break;
    case Form::Unicode4096:
      PutLE(at + 0xFD8, count, 2);
      PutLE(at + 0xFDA, max, 2);
      PutLE(at + 0xFDC, size, 1);
      PutLE(at + 0xFDD, level, 1);
      PutLE(at + 0xFE8, type, 1);
      PutLE(at + 0xFE9, type, 1);
      break;
  }
}

void StoreBuilder::NodeLeaf(std::uint64_t at, const std::vector<NodeRow>& rows, Trailer t) {
  Ensure(at + PageSize());
  const unsigned size = Ansi() ? 16 : 32;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::uint64_t r = at + i * size;
    const NodeRow& n = rows[i];
    if (Ansi()) {
      PutLE(r, n.nodeId, 4);
      PutLE(r + 4, n.dataBlock, 4);
      PutLE(r + 8, n.subnodeBlock, 4);
      PutLE(r + 12, n.parent, 4);
    } else {
      PutLE(r, n.nodeId, 4);
      PutLE(r + 8, n.dataBlock, 8);
      PutLE(r + 16, n.subnodeBlock, 8);
      PutLE(r + 24, n.parent, 4);
    }
  }
  const unsigned max = form_ == Form::Ansi512 ? 31 : form_ == Form::Unicode512 ? 15 : 126;
  WriteTrailer(at, static_cast<unsigned>(rows.size()), max, size, 0, 0x81, t);
}

void StoreBuilder::BlockLeaf(std::uint64_t at, const std::vector<BlockRow>& rows, Trailer t) {
  Ensure(at + PageSize());
  const unsigned size = Ansi() ? 12 : 24;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::uint64_t r = at + i * size;
    if (Ansi()) {
      PutLE(r, rows[i].blockId, 4);
      PutLE(r + 4, rows[i].offset, 4);
      PutLE(r + 8, rows[i].size, 2);
      PutLE(r + 10, 1, 2);
    } else {
      PutLE(r, rows[i].blockId, 8);
      PutLE(r + 8, rows[i].offset, 8);
      PutLE(r + 16, rows[i].size, 2);
      PutLE(r + 18, 1, 2);
    }
  }
  const unsigned max = form_ == Form::Ansi512 ? 41 : form_ == Form::Unicode512 ? 20 : 169;
  WriteTrailer(at, static_cast<unsigned>(rows.size()), max, size, 0, 0x80, t);
}

void StoreBuilder::Branch(std::uint64_t at, bool nodeIndex, std::uint8_t level, const std::vector<BranchRow>& rows,
                          Trailer t) {
  Ensure(at + PageSize());
  const unsigned size = Ansi() ? 12 : 24;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::uint64_t r = at + i * size;
    if (Ansi()) {
      PutLE(r, rows[i].key, 4);
      PutLE(r + 4, 0x1000 + i, 4);
      PutLE(r + 8, rows[i].childOffset, 4);
    } else {
      PutLE(r, rows[i].key, 8);
      PutLE(r + 8, 0x1000 + i, 8);
      PutLE(r + 16, rows[i].childOffset, 8);
    }
  }
  const unsigned max = form_ == Form::Ansi512 ? 41 : form_ == Form::Unicode512 ? 20 : 169;
  WriteTrailer(at, static_cast<unsigned>(rows.size()), max, size, level, nodeIndex ? 0x81 : 0x80, t);
}

std::unique_ptr<MemorySource> StoreBuilder::Source() const {
  return std::make_unique<MemorySource>(bytes_);
}

void BlockStore::Add(std::uint64_t id, const std::vector<std::uint8_t>& data) {
  b_.Put(next_, data);
  rows_.push_back({id, next_, static_cast<std::uint16_t>(data.size())});
  next_ += (data.size() + 0x3F) & ~std::uint64_t{0x3F};
}

std::unique_ptr<StoreReader> BlockStore::Open(const std::string& tempFolder) {
  b_.BlockLeaf(0x4000, rows_);
  b_.Roots(0x4200, 0x4000);
  auto reader = std::make_unique<StoreReader>(tempFolder);
  EXPECT_TRUE(reader->OpenSource(b_.Source()));
  return reader;
}

namespace {

void Append(std::vector<std::uint8_t>& out, std::uint64_t v, bool wide) {
  for (int i = 0; i < (wide ? 8 : 4); ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

}  // namespace

std::vector<std::uint8_t> IndexBlock(bool wide, std::uint8_t level, const std::vector<std::uint64_t>& ids,
                                     std::uint32_t total, int count) {
  const std::uint16_t n = static_cast<std::uint16_t>(count >= 0 ? count : static_cast<int>(ids.size()));
  std::vector<std::uint8_t> out = {1, level, static_cast<std::uint8_t>(n), static_cast<std::uint8_t>(n >> 8)};
  Append(out, total, false);
  for (std::uint64_t id : ids) Append(out, id, wide);
  return out;
}

std::vector<std::uint8_t> SubnodeBlock(bool wide, std::uint8_t level, const std::vector<NodeRow>& rows) {
  std::vector<std::uint8_t> out(wide ? 8 : 4, 0);
  out[0] = 2;
  out[1] = level;
  out[2] = static_cast<std::uint8_t>(rows.size());
  out[3] = static_cast<std::uint8_t>(rows.size() >> 8);
  for (const NodeRow& row : rows) {
    Append(out, row.nodeId, wide);
    Append(out, row.dataBlock, wide);
    if (level == 0) Append(out, row.subnodeBlock, wide);
  }
  return out;
}

std::vector<std::uint8_t> Deflated(const std::vector<std::uint8_t>& plain) {
  uLongf n = compressBound(plain.size());
  std::vector<std::uint8_t> out(n);
  compress2(out.data(), &n, plain.data(), plain.size(), Z_DEFAULT_COMPRESSION);
  out.resize(n);
  return out;
}

}  // namespace marrow::test
