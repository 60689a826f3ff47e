// How each kind of output is written: through the engine or not, into one
// store or one per source, the engine's format code, and the writer the
// save walk hands items to. Kinds with no writer yet have none.
#pragma once

#include <cstdint>
#include <memory>

#include "saving/item_writer.h"
#include "saving/save_options.h"

namespace marrow {

using MakeItemWriter = std::unique_ptr<ItemWriter> (*)();

struct OutputRoute {
  bool usesEngine = false;
  bool singleStore = false;
  std::uint32_t saveAsCode = 3;
  MakeItemWriter makeWriter = nullptr;
};
OutputRoute RouteOf(OutputKind kind);

}  // namespace marrow
