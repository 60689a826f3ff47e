// A full walk of the block index: every leaf row, in page order.
#pragma once

#include <functional>

#include "store/page_layout.h"
#include "store/store_reader.h"

namespace marrow {

// Calls `visit` for each leaf row of the block index reachable from the
// block root, depth first in row order. Every page is read at most once and
// must pass the same tests as in a look-up.
void ForEachBlockEntry(StoreReader& reader, const std::function<void(const BlockEntry&)>& visit);

}  // namespace marrow
