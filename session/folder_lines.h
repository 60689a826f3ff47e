// The folder tree of a parsed source as lines: each folder in tree order
// with the number of rows its item list would show.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/folder_record.h"

namespace marrow {

class Source;

struct FolderLine {
  std::string path;  // names below the source joined by "/"
  FolderRecord folder;
  std::uint64_t items = 0;  // index messages and lost rows alike
};

std::vector<FolderLine> FolderLines(Source& source);

}  // namespace marrow
