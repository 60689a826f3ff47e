#pragma once

#include "store/byte_order.h"

namespace marrow {

// Row `i` of `size` bytes inside a page; empty when it lies wholly past the end.
inline Bytes RowAt(Bytes page, unsigned i, unsigned size) {
  std::size_t at = static_cast<std::size_t>(i) * size;
  if (at >= page.size()) return {};
  return page.subspan(at, std::min<std::size_t>(size, page.size() - at));
}

}  // namespace marrow
