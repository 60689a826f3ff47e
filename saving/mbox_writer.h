// One MBOX file per saved folder: each message behind a fixed separator
// line, byte for byte, then CR LF. Nothing inside a message is changed.
#pragma once

#include <cstdio>
#include <string>

#include "saving/item_writer.h"

namespace marrow {

class MboxWriter final : public ItemWriter {
 public:
  static constexpr const char* kSeparator = "From MAILER-DAEMON Fri Jul  8 12:08:34 2011\n";

  MboxWriter() = default;
  ~MboxWriter() override { Close(); }
  MboxWriter(const MboxWriter&) = delete;
  MboxWriter& operator=(const MboxWriter&) = delete;

  // Creates or empties the file; false when it cannot be opened.
  bool Open(const std::string& path);
  void Close();
  bool IsOpen() const { return file_ != nullptr; }

  // Appends one message file; a file that cannot be read adds nothing.
  void AppendToMbox(const std::string& emlPath);

  // The folder's file is "<folderName>.MBOX" inside its directory.
  bool BeginFolder(const std::string& folderPath, const std::string& folderName, std::string& failure) override;
  bool WriteItem(const ConvertedItem& item, const ItemPlace& place) override;
  void EndRun() override { Close(); }

 private:
  void WriteAtEnd(const void* data, std::size_t size);
  std::FILE* file_ = nullptr;
};

}  // namespace marrow
