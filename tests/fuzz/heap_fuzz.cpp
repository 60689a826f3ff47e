// Any bytes as one block: both byte codes and inflate, then the block read as
// a heap (property list, table, headers) in both heap-id layouts, with a
// made-up join of two segments so that segment ids resolve somewhere.
#include <algorithm>

#include "store/block_codec.h"
#include "tests/fuzz/heap_check.h"

using namespace marrow;
using namespace marrow::fuzz;

namespace {

// Both byte codes must undo themselves, other methods are refused, and an
// inflate with a smaller bound gives a prefix of the larger one.
void ExerciseCodec(const Buf& bytes) {
  const std::size_t size = bytes.size();
  const std::uint64_t key = size >= 4 ? ReadU32(bytes, 0) : size;
  const Buf plain(bytes.begin(), bytes.begin() + std::min<std::size_t>(size, 0x20000));
  Buf work = plain;
  work.reserve(1);  // a buffer, even for empty input: only a null one is refused
  // Permute encodes then decodes; the cyclic code is its own inverse.
  for (const auto& [first, method] : {std::pair{false, kCryptPermute}, std::pair{true, kCryptCyclic}}) {
    Check(DecodeBlock(work.data(), work.size(), key, first, method) == 0 &&
              DecodeBlock(work.data(), work.size(), key, true, method) == 0,
          "a byte code was refused");
    Check(work == plain, "a byte code does not undo itself");
  }
  for (int method : {3 + (size > 0 ? bytes[0] % 200 : 0), int{kCryptNone}}) {
    Check(DecodeBlock(work.data(), work.size(), key, true, method) == -1, "an unknown method was accepted");
  }
  Check(work == plain, "a refused method changed the bytes");
  Check(DecodeBlock(nullptr, 16, key, true, kCryptPermute) == -1, "a null buffer was accepted");

  const Buf full = InflateBuffer(bytes);
  Check(full.size() <= kMaxInflatedSize, "inflate passed its default bound");
  const std::size_t small = size > 1 ? 1 + bytes[1] * 37 : 1;
  const Buf cut = InflateBuffer(bytes, small);
  Check(cut.size() <= small, "inflate passed its bound");
  Check(cut.size() <= full.size() && std::equal(cut.begin(), cut.end(), full.begin()),
        "a bounded inflate is not a prefix of the full one");
  Check(LooksDeflated(bytes) == (size >= 2 && bytes[0] == 0x78 && bytes[1] == 0x9C),
        "LooksDeflated disagrees with the zlib header");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Buf bytes(data, data + size);
  ExerciseCodec(bytes);
  const ScratchFolder scratch;
  StoreReader reader(scratch.Path());
  const Bytes block(bytes.data(), std::min<std::size_t>(bytes.size(), kMaxBlockSize));
  const std::vector<HeapSegment> segments = {{0, block.size() / 2},
                                             {block.size() / 2, block.size() - block.size() / 2}};
  for (bool large : {false, true}) {
    reader.SetLargePage(large);
    ReadHeap(reader, block, &segments, {});
  }
  return 0;
}
