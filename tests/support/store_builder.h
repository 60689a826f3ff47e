// Builds small synthetic stores in memory, page by page, for the reader's tests.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "store/byte_source.h"
#include "store/store_reader.h"

namespace marrow::test {

enum class Form { Ansi512, Unicode512, Unicode4096 };

// A form's name, for the names and messages of parameterised tests.
const char* FormName(Form form);
inline void PrintTo(Form form, std::ostream* os) {
  *os << FormName(form);
}

struct NodeRow {
  std::uint32_t nodeId;
  std::uint64_t dataBlock;
  std::uint64_t subnodeBlock;
  std::uint32_t parent;
};

struct BlockRow {
  std::uint64_t blockId;
  std::uint64_t offset;
  std::uint16_t size;
};

struct BranchRow {
  std::uint64_t key;
  std::uint64_t childOffset;
};

// Trailer values of a page, overridden to make broken pages; -1 keeps the right one.
struct Trailer {
  int count = -1, max = -1, size = -1, level = -1, type = -1;
};

class StoreBuilder {
 public:
  explicit StoreBuilder(Form form, std::size_t fileSize = 0x10000);

  std::size_t PageSize() const;
  bool Ansi() const { return form_ == Form::Ansi512; }

  void NodeLeaf(std::uint64_t at, const std::vector<NodeRow>& rows, Trailer t = {});
  void BlockLeaf(std::uint64_t at, const std::vector<BlockRow>& rows, Trailer t = {});
  // A branch page of the node index (nodeIndex) or the block index.
  void Branch(std::uint64_t at, bool nodeIndex, std::uint8_t level, const std::vector<BranchRow>& rows, Trailer t = {});
  void Put(std::uint64_t at, const std::vector<std::uint8_t>& data);
  // Writes a data block with its trailer (size, signature, checksum, id);
  // returns the offset where the next block may start.
  std::uint64_t Block(std::uint64_t at, std::uint64_t blockId, const std::vector<std::uint8_t>& data);
  void Roots(std::uint64_t nodeRoot, std::uint64_t blockRoot);
  void CryptByte(std::uint8_t method);
  void VersionWord(std::uint16_t version);

  const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
  std::unique_ptr<MemorySource> Source() const;

 private:
  void Ensure(std::uint64_t end);
  void PutLE(std::uint64_t at, std::uint64_t v, int width);
  void WriteTrailer(std::uint64_t at, unsigned count, unsigned max, unsigned size, unsigned level, unsigned type,
                    const Trailer& t);

  Form form_;
  std::vector<std::uint8_t> bytes_;
};

// A store whose block index is one leaf at 0x4000 listing the blocks added
// (stored from 0x8000 on) and whose node index is one leaf at 0x4200.
class BlockStore {
 public:
  explicit BlockStore(Form form = Form::Unicode512) : b_(form, 0x20000) {}

  void Add(std::uint64_t id, const std::vector<std::uint8_t>& data);
  void Nodes(const std::vector<NodeRow>& rows) { b_.NodeLeaf(0x4200, rows); }
  StoreBuilder& Builder() { return b_; }
  std::unique_ptr<StoreReader> Open(const std::string& tempFolder = {});

 private:
  StoreBuilder b_;
  std::vector<BlockRow> rows_;
  std::uint64_t next_ = 0x8000;
};

// An index block of a data tree: type 1, level, count (or `count` when not
// -1), total size, then the child ids, 4 or 8 bytes each.
std::vector<std::uint8_t> IndexBlock(bool wide, std::uint8_t level, const std::vector<std::uint64_t>& ids,
                                     std::uint32_t total = 0, int count = -1);
// A subnode block: type 2, level, count, then rows of NodeId, data block and
// (in a leaf) subnode block.
std::vector<std::uint8_t> SubnodeBlock(bool wide, std::uint8_t level, const std::vector<NodeRow>& rows);
// zlib's stream of `plain` at the default level (header 78 9C).
std::vector<std::uint8_t> Deflated(const std::vector<std::uint8_t>& plain);

}  // namespace marrow::test
