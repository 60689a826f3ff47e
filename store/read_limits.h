// Bounds on what one read may gather or descend through. Real stores stay
// well inside them; they cap what a damaged or hostile file can cost.
#pragma once

#include <cstddef>
#include <cstdint>

namespace marrow {

// Size limits of block reading.
constexpr std::uint64_t kMaxBlockSize = 0x10000;
constexpr std::size_t kMaxInflatedBlock = 0x20000;
// Nested index blocks in real stores go two levels deep; this bounds what a
// damaged or hostile file can make the readers recurse through.
constexpr int kMaxBlockTreeDepth = 8;
// The most bytes an index-block join may gather. A join larger than a block
// is only ever used through its first bytes, so nothing real is lost.
constexpr std::size_t kMaxJoinSize = 0x100000;
// Joins nest once in a real store (a two-level tree joins its index blocks,
// whose join joins the data blocks); deeper nesting only comes from damage.
constexpr int kMaxJoinDepth = 2;
// Index pages one look-up may descend through below the root. Real indexes
// are a few levels deep; a longer descent follows a chain of damaged pages,
// and following it for every id of a large index block takes seconds.
constexpr std::size_t kMaxIndexDepth = 16;

}  // namespace marrow
