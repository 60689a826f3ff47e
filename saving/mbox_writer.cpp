#include "saving/mbox_writer.h"

#include <cstring>
#include <vector>

namespace marrow {

bool MboxWriter::Open(const std::string& path) {
  Close();
  file_ = std::fopen(path.c_str(), "wb");
  return file_ != nullptr;
}

void MboxWriter::Close() {
  if (file_ != nullptr) std::fclose(file_);
  file_ = nullptr;
}

void MboxWriter::WriteAtEnd(const void* data, std::size_t size) {
  // Every write goes to the end, whatever the position was left at.
  std::fseek(file_, 0, SEEK_END);
  std::fwrite(data, 1, size, file_);
}

void MboxWriter::AppendToMbox(const std::string& emlPath) {
  if (file_ == nullptr) return;
  std::FILE* source = std::fopen(emlPath.c_str(), "rb");
  if (source == nullptr) return;
  WriteAtEnd(kSeparator, std::strlen(kSeparator));
  std::vector<char> chunk(0x10000);
  for (;;) {
    const std::size_t n = std::fread(chunk.data(), 1, chunk.size(), source);
    if (n == 0) break;
    WriteAtEnd(chunk.data(), n);
  }
  std::fclose(source);
  WriteAtEnd("\r\n", 2);
}

bool MboxWriter::BeginFolder(const std::string& folderPath, const std::string& folderName, std::string& failure) {
  Close();
  // The folder's own name is used as it stands; one a file name cannot
  // hold fails here, as it would anywhere.
  const bool usable = folderName.find('/') == std::string::npos && folderName.find('\0') == std::string::npos;
  if (!usable || !Open(folderPath + folderName + ".MBOX")) {
    failure = "Unable to create " + folderPath + folderName + ".MBOX";
    return false;
  }
  return true;
}

bool MboxWriter::WriteItem(const ConvertedItem& item, const ItemPlace&) {
  AppendToMbox(item.emlPath);
  return true;
}

}  // namespace marrow
