#include "content/item_reader.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>

#include "content/property_values.h"
#include "content/rtf_body.h"
#include "store/ascii_case.h"
#include "store/byte_sink.h"
#include "store/temp_file.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

constexpr std::uint16_t kTransportHeaders = 0x007D;
constexpr std::uint16_t kSenderName = 0x0C1A;
constexpr std::uint16_t kSenderAddress = 0x0C1F;
constexpr std::uint16_t kSenderFallback = 0x8235;
// Whom the item is from, when it names no sender of its own.
constexpr std::uint16_t kRepresentingName = 0x0042;
constexpr std::uint16_t kRepresentingAddress = 0x0065;
constexpr std::uint16_t kRecipientTable = 0x692;
constexpr std::uint16_t kAttachmentTable = 0x671;
// One subnode id that is never read as an attachment, as stored: low half
// 0x00250B04, high half 0x000087D0.
constexpr std::uint64_t kSkippedAttachment = 0x000087D000250B04ull;
constexpr std::uint16_t kTypeString8 = 0x001E;
constexpr std::uint16_t kTypeUnicode = 0x001F;
constexpr std::uint16_t kTypeObject = 0x000D;

bool IsString(const PropertyValue& v) {
  return v.propType == kTypeString8 || v.propType == kTypeUnicode;
}

std::string ValueText(const PropertyValue& v, unsigned codePage) {
  const std::vector<std::uint8_t> bytes = ValueBytes(v);
  return v.propType == kTypeUnicode ? Utf16ToUtf8(bytes.data(), bytes.size())
                                    : CodePageToUtf8(bytes.data(), bytes.size(), codePage);
}

void CutTrailing(std::string& text, char c) {
  while (!text.empty() && text.back() == c) text.pop_back();
}

// "name<address>;", with either standing in for the other when empty.
std::string RecipientEntry(const std::string& name, const std::string& address) {
  const std::string& n = name.empty() ? address : name;
  const std::string& a = address.empty() ? name : address;
  return n + "<" + a + ">;";
}

// A name a file of the item folder may take: no folder parts, no NUL, not
// "." or "..". Anything else is refused here as a file system would refuse it.
bool UsableFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// The addresses a recipient table still shows in its raw bytes, for a table
// whose rows cannot be read.
void ScanRawAddresses(Bytes table, std::vector<std::string>& all, std::string& to) {
  std::set<std::string> seen;
  static const std::string kSmtp("\0SMTP\0", 6), kEx("\0EX\0", 4);
  const std::string_view text(reinterpret_cast<const char*>(table.data()), table.size());
  std::size_t from = 0;
  for (;;) {
    const std::size_t smtp = text.find(kSmtp, from), ex = text.find(kEx, from);
    const std::size_t hit = std::min(smtp, ex);
    if (hit == std::string_view::npos) return;
    const std::size_t skip = hit == smtp ? kSmtp.size() : kEx.size();
    std::size_t start = hit + skip;
    for (std::size_t back = hit; back >= 2; --back) {
      if (table[back - 2] == 0x01 && table[back - 1] == 0x10) {
        start = back;
        break;
      }
    }
    std::size_t end = start;
    while (end < table.size() && table[end] != 0) ++end;
    std::string address = CodePageToUtf8(table.data() + start, end - start, kDefaultCodePage);
    address = AsciiLower(address);
    if (!address.empty() && seen.insert(address).second) {
      all.push_back(address + "<" + address + ">;");
      to += address + "<" + address + ">;";
    }
    from = hit + skip;
  }
}

}  // namespace

int ItemIcon(int kind, std::uint32_t iconIndex, std::uint32_t messageFlags) {
  if (kind != 0) return kind;
  if ((iconIndex & 0x105) == 0x105) return 6;
  if ((iconIndex & 0x106) == 0x106) return 7;
  return (messageFlags & 0x1) != 0 ? 1 : 0;
}

ItemReader::ItemReader(StoreReader& reader, std::string itemFolder)
    : reader_(reader), itemFolder_(std::move(itemFolder)) {
  if (!itemFolder_.empty() && itemFolder_.back() != '/') itemFolder_ += '/';
}

void ItemReader::ClearItemFolder() {
  std::error_code ec;
  fs::create_directories(itemFolder_, ec);
  for (const fs::directory_entry& e : fs::directory_iterator(itemFolder_, ec)) {
    if (e.is_regular_file(ec)) fs::remove(e.path(), ec);
  }
}

std::string ItemReader::TempName(const std::string& extension) const {
  return itemFolder_ + NewGuidText() + extension;
}

std::string ItemReader::SenderText(const PropertyBag& bag) const {
  std::string name = GetString(bag, kSenderName, false);
  std::string address = GetString(bag, kSenderAddress, false);
  if (name.empty() && address.empty()) {
    name = GetString(bag, kRepresentingName, false);
    address = GetString(bag, kRepresentingAddress, false);
  }
  std::string text = address.empty() ? name : name + "<" + address + ">";
  if (text.find('/') != std::string::npos) {
    // An Exchange distinguished name: the stored headers know better.
    const std::string headers = GetString(bag, kTransportHeaders, false);
    if (!headers.empty() && parseFrom_) text = parseFrom_(headers);
  }
  text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
  if (text.find('/') != std::string::npos) {
    const std::string fallback = GetString(bag, kSenderFallback, false);
    const std::size_t at = fallback.find('@');
    if (!fallback.empty() && at != std::string::npos && at > 0) text = fallback;
  }
  if (text.find('/') != std::string::npos) text = name;
  return text;
}

void ItemReader::BuildItemHeader(const PropertyBag& bag, ItemHeader& h) {
  h.codePage = codePage_ = marrow::TextCodePage(bag);
  h.fromText = SenderText(bag);
  h.toText = GetString(bag, 0x0E04, false);
  h.ccText = GetString(bag, 0x0E03, false);
  h.bccText = GetString(bag, 0x0E02, false);
  h.transportHeaders = GetString(bag, kTransportHeaders, false);
  h.subject = GetString(bag, 0x0037, true);
  h.subjectCopy = h.subject;
  h.dateText = GetDateText(bag, 0x0E06, false);
  h.deliveryTime = GetU64(bag, 0x0E06);
  h.messageClass = GetString(bag, 0x001A, false);
  h.messageFlags = GetU32(bag, 0x0E07);
  h.iconIndex = GetU32(bag, 0x1080);
  h.importance = GetU32(bag, 0x0017);

  // The plain body: the largest of three candidates, the later on a tie.
  // Two of them are no body tags; damaged or rebuilt items keep text there.
  // Sizes compare as 32-bit numbers. Only the winner is written; should its
  // file fail, the others are weighed again without it.
  h.textPath.clear();
  std::vector<std::uint16_t> candidates;
  for (std::uint16_t tag : {std::uint16_t{0x6619}, std::uint16_t{0x0002}, std::uint16_t{0x1000}}) {
    if (bag.Find(tag) != nullptr) candidates.push_back(tag);
  }
  while (!candidates.empty() && h.textPath.empty()) {
    std::size_t winner = 0;
    for (std::size_t i = 1; i < candidates.size(); ++i) {
      if (bag.Find(candidates[i])->size >= bag.Find(candidates[winner])->size) winner = i;
    }
    std::uint64_t size = 0;
    bool unicode = false;
    const std::string path = WriteValueToFile(bag, candidates[winner], TempName(".txt"), size, unicode);
    if (!path.empty()) {
      h.textPath = path;
      h.textIsUnicode = unicode;
    }
    candidates.erase(candidates.begin() + static_cast<std::ptrdiff_t>(winner));
  }
  std::uint64_t size = 0;
  bool unicode = false;
  h.htmlPath = WriteValueToFile(bag, 0x1013, TempName(".html"), size, unicode);
  h.rtfPath = TempName(".Rtf");
  if (!WriteRtfBody(bag, h.rtfPath)) h.rtfPath.clear();
}

void ItemReader::ReadRecipients(const SubnodeLists& subnodes, const std::string& emlPath, std::string& to,
                                std::string& cc, std::string& bcc, std::vector<std::string>& all) {
  to.clear();
  cc.clear();
  bcc.clear();
  all.clear();
  if (!emlPath.empty() && parseRecipients_) {
    parseRecipients_(emlPath, to, cc, bcc);
    if (!to.empty() || !cc.empty() || !bcc.empty()) {
      CutTrailing(to, ';');
      CutTrailing(cc, ';');
      CutTrailing(bcc, ';');
      return;
    }
  }

  std::vector<std::uint8_t> table;
  std::vector<HeapSegment> segments;
  std::uint64_t child = 0;
  if (!reader_.ReadSubnodeHeap(kRecipientTable, subnodes, table, segments, child)) return;
  SubnodeLists childLists;
  reader_.ReadSubnodeList(child, childLists);
  std::vector<PropertyBag> rows;
  reader_.ReadPropertyBag(table, nullptr, &rows, &segments, childLists, false, true);
  for (PropertyBag& row : rows) {
    row.textCodePage = codePage_;
    std::string address = GetString(row, 0x3003, false);
    std::string type = GetString(row, 0x3002, false);
    const std::string name = GetString(row, 0x3001, false);
    const std::uint32_t kind = GetU32(row, 0x0C15);
    type = AsciiUpper(type);
    if (type == "EX") {
      // A distinguished name: the first text of the row with an address in
      // it stands instead, its line end kept.
      const std::vector<PropertyValue>& values = row.Values();
      for (std::size_t i = 1; i < values.size(); ++i) {
        if (!IsString(values[i])) continue;
        const std::string text = ValueText(values[i], codePage_) + "\r\n";
        const std::size_t at = text.find('@');
        if (at != std::string::npos && at > 0) {
          address = text;
          break;
        }
      }
    }
    if (name.empty() && address.empty()) continue;
    const std::string entry = RecipientEntry(name, address);
    all.push_back(entry);
    if (kind == 1) to += entry;
    if (kind == 2) cc += entry;
    if (kind == 3) bcc += entry;
  }
  if (all.empty()) ScanRawAddresses(table, all, to);
  CutTrailing(to, ';');
  CutTrailing(cc, ';');
  CutTrailing(bcc, ';');
  for (std::string& entry : all) CutTrailing(entry, ';');
}

void ItemReader::ReadAttachments(
    const SubnodeLists& subnodes, AttachmentFiles& files,
    const std::function<std::string(EmbeddedMessage&, const std::string& name)>& onEmbedded) {
  for (const SubnodeRow& row : subnodes) {
    if (row.nodeId == kAttachmentTable) continue;
    if (row.storedId == kSkippedAttachment) continue;
    std::string name, contentId, mimeTag;
    EmbeddedMessage nested;
    bool isMessage = false;
    std::string path = ReadOneAttachment(row.nodeId, subnodes, name, contentId, mimeTag, &nested, isMessage);
    if (path.empty()) continue;
    if (isMessage) {
      std::error_code ec;
      fs::remove(path, ec);
      path = onEmbedded ? onEmbedded(nested, name) : std::string();
      if (path.empty()) continue;
    }
    files.push_back({std::move(path), std::move(name), std::move(contentId), std::move(mimeTag)});
  }
}

std::string ItemReader::ReadOneAttachment(std::uint64_t subnodeId, const SubnodeLists& subnodes, std::string& name,
                                          std::string& contentId, std::string& mimeTag, EmbeddedMessage* nested,
                                          bool& isMessage) {
  isMessage = false;
  std::vector<std::uint8_t> heap;
  std::vector<HeapSegment> segments;
  std::uint64_t child = 0;
  if (!reader_.ReadSubnodeHeap(subnodeId, subnodes, heap, segments, child) || heap.empty()) return {};
  SubnodeLists childLists;
  reader_.ReadSubnodeList(child, childLists);
  PropertyBag bag;
  bag.textCodePage = codePage_;
  reader_.ReadPropertyBag(heap, &bag, nullptr, &segments, childLists, false, false);

  const PropertyValue* data = bag.Find(0x3701);
  if (data == nullptr || data->size == 0) return {};
  // The data lies in a subnode when the value names one: a reference, or an
  // object's eight bytes (the subnode's id, then its size). A small
  // attachment keeps its bytes in its own heap instead.
  const std::uint32_t first = data->data.size() >= 4 ? ReadU32(data->data, 0) : 0;
  const bool inSubnode = data->propType == kTypeObject || (data->size == 4 && (first & 0xF) == 0xF);
  const std::uint64_t reference = inSubnode ? first : 0;
  if (inSubnode && reference == 0) return {};
  mimeTag = GetString(bag, 0x370E, false);
  contentId = GetString(bag, 0x3712, false);
  if (name.empty()) {
    // The display name wins over the long file name.
    for (std::uint16_t tag : {std::uint16_t{0x3001}, std::uint16_t{0x3707}, std::uint16_t{0x3704}}) {
      name = GetString(bag, tag, false);
      if (!name.empty()) break;
    }
  }
  if (name.empty()) return {};

  // A file already in the item folder (an earlier attachment of the same
  // name) is not written over.
  std::error_code ec;
  const std::string target = itemFolder_ + name;
  std::string path = UsableFileName(name) && !fs::exists(target, ec) ? target : std::string();
  std::unique_ptr<FileSink> out;
  if (!path.empty()) out = std::make_unique<FileSink>(path);
  if (!out || !out->IsOpen()) {
    path = TempName(".Bin");
    out = std::make_unique<FileSink>(path);
    if (!out->IsOpen()) return {};
  }
  std::uint64_t nestedSubnode = 0;
  if (inSubnode) {
    reader_.ReadSubnodeInto(reference, childLists, *out, nestedSubnode);
  } else {
    out->Append(ValueBytes(*data));
  }
  out.reset();

  std::uint8_t head[100] = {};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(head), sizeof head);
  if (inSubnode && head[2] == 0xEC && head[3] == 0xBC) {
    isMessage = true;
    name += ".eml";
    if (nested != nullptr) {
      std::vector<std::uint8_t> message;
      std::vector<HeapSegment> messageSegments;
      std::uint64_t messageChild = 0;
      reader_.ReadSubnodeList(nestedSubnode, nested->subnodes);
      if (reader_.ReadSubnodeHeap(reference, childLists, message, messageSegments, messageChild)) {
        nested->bag.textCodePage = codePage_;
        reader_.ReadPropertyBag(message, &nested->bag, nullptr, &messageSegments, nested->subnodes, false, false);
      }
    }
  }
  return path;
}

bool ItemReader::ReadItemRow(std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock, bool isLost,
                             ItemRow& row) {
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!reader_.FindBlock(reader_.BlockRoot(), dataBlock, offset, size, visited)) return false;
  if (size > kMaxBlockSize || offset >= reader_.FileSize()) return false;
  std::vector<std::uint8_t> block = reader_.ReadAt(offset, size);
  std::vector<HeapSegment> segments;
  reader_.NormalizeBlock(block, dataBlock, &segments);
  SubnodeLists subnodes;
  reader_.ReadSubnodeList(subnodeBlock, subnodes);
  PropertyBag bag;
  // Large values stay where they are: a row needs none but the headers.
  reader_.ReadPropertyBag(block, &bag, nullptr, &segments, subnodes, true, false);

  row = {};
  row.importance = GetU32(bag, 0x0017);
  row.messageFlags = GetU32(bag, 0x0E07);
  row.messageClass = GetString(bag, 0x001A, false);
  row.subject = GetString(bag, 0x0037, true);
  const std::string prefix = GetString(bag, 0x003D, false);
  row.iconIndex = GetU32(bag, 0x1080);
  row.fromText = SenderText(bag);
  row.dateText = GetDateText(bag, 0x0E06, false);
  row.isLost = isLost;
  row.dataBlock = dataBlock;
  row.nodeId = nodeId;
  row.subnodeBlock = subnodeBlock;
  // What a block of noise looks like: no sender, no subject, no date.
  return !(row.fromText.empty() && (prefix + row.subject).empty() && row.dateText.empty());
}

}  // namespace marrow
