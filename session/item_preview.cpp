#include "session/item_preview.h"

#include <stdlib.h>

#include <filesystem>

#include "mail/file_bytes.h"
#include "session/source.h"
#include "store/temp_file.h"
#include "text/code_page.h"
#include "text/utf16.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// A private folder for the item's body and attachment files, removed with it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = DefaultTempFolder() + "/marrow-preview-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~ScratchFolder() {
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path) {
  std::string bytes;
  if (!path.empty()) ReadWholeFile(path, &bytes);
  return bytes;
}

// The plain body file as UTF-8: it holds UTF-16 or 8-bit text in the item's code page.
std::string PlainText(const ItemHeader& header) {
  const std::string bytes = ReadFile(header.textPath);
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  return header.textIsUnicode ? Utf16ToUtf8(data, bytes.size()) : CodePageToUtf8(data, bytes.size(), header.codePage);
}

}  // namespace

bool ReadItemPreview(Source& source, const ItemRow& row, ItemPreview& out) {
  ScratchFolder scratch;
  if (scratch.Path().empty()) return false;
  StoreReader& reader = source.Reader();
  ItemReader items(reader, scratch.Path());
  SubnodeLists subnodes;
  reader.ReadSubnodeList(row.subnodeBlock, subnodes);
  PropertyBag bag;
  if (!reader.ReadBagFromBlock(row.dataBlock, bag, subnodes)) return false;

  ItemHeader header;
  items.BuildItemHeader(bag, header);
  out = {};
  out.from = header.fromText;
  out.to = header.toText;
  out.cc = header.ccText;
  out.bcc = header.bccText;
  out.subject = header.subject;
  out.date = header.dateText;
  out.plainBody = PlainText(header);
  // The HTML body keeps its bytes: its charset is the document's own.
  out.htmlBody = ReadFile(header.htmlPath);

  AttachmentFiles attachments;
  // An embedded message is named, not converted: the name stands for its file.
  items.ReadAttachments(subnodes, attachments, [](EmbeddedMessage&, const std::string& name) { return name; });
  for (const AttachmentFile& file : attachments) out.attachmentNames.push_back(file.name);
  return true;
}

}  // namespace marrow
