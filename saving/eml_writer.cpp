#include "saving/eml_writer.h"

#include <filesystem>

namespace marrow {

bool EmlWriter::WriteItem(const ConvertedItem& item, const ItemPlace& place) {
  namespace fs = std::filesystem;
  std::error_code ec;
  return fs::copy_file(item.emlPath, place.folderPath + std::to_string(place.number) + ".eml",
                       fs::copy_options::overwrite_existing, ec);
}

}  // namespace marrow
