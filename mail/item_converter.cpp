#include "mail/item_converter.h"

#include <filesystem>
#include <set>

#include "content/item_render.h"
#include "content/multi_values.h"
#include "content/property_values.h"
#include "mail/ck_email.h"
#include "mail/eml_builder.h"
#include "mail/file_bytes.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// A message embedded in itself, directly or through others, would nest
// without end in a damaged or hostile store; real mail is a few levels deep.
constexpr int kMaxEmbedDepth = 64;
// Even within the depth, two embedded copies per level double the work at
// every level; one item converts at most this many embedded messages.
constexpr int kMaxEmbedded = 256;

// Stands for a missing body, so that no EML is ever without a body part.
constexpr const char* kFillerBody = "\t\t\t\t   ";

// A name a file of the item folder may take.
std::string FileNameFor(std::string name) {
  for (char& c : name) {
    if (c == '/' || c == '\0') c = '_';
  }
  if (name.empty() || name == "." || name == "..") name = "message.eml";
  return name;
}

// Moves a converted embedded message to its attachment name (numbered when
// the name is taken), so that the attached message carries it. Where no
// name can be had the file stays where it is.
std::string MoveToName(const std::string& folder, const std::string& path, const std::string& name) {
  const fs::path wanted = FileNameFor(name);
  std::error_code ec;
  for (int n = 1; n < 100; ++n) {
    const fs::path target =
        fs::path(folder) /
        (n == 1 ? wanted
                : fs::path(wanted.stem().string() + " (" + std::to_string(n) + ")" + wanted.extension().string()));
    if (fs::exists(target, ec)) continue;
    fs::rename(path, target, ec);
    return ec ? path : target.string();
  }
  return path;
}

std::string ReadBodyText(const std::string& path, bool isUnicode, unsigned codePage) {
  std::string bytes;
  if (path.empty() || !ReadWholeFile(path, &bytes)) return {};
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  return isUnicode ? Utf16ToUtf8(data, bytes.size()) : CodePageToUtf8(data, bytes.size(), codePage);
}

SubnodeBytes SubnodeBytesOf(StoreReader* store, const SubnodeLists& subnodes) {
  if (store == nullptr) return {};
  return [store, &subnodes] {
    std::vector<std::vector<std::uint8_t>> out;
    for (const SubnodeRow& row : subnodes) {
      MemorySink sink;
      std::uint64_t childSubnodes = 0;
      store->ReadSubnodeInto(row.nodeId, subnodes, sink, childSubnodes);
      out.push_back(sink.Data());
    }
    return out;
  };
}

// Keeps the longer of the recipient table's text and the header's.
std::string Longer(std::string table, std::string header) {
  return table.size() > header.size() ? std::move(table) : std::move(header);
}

std::string Convert(ItemReader& items, const PropertyBag& bag, const SubnodeLists& subnodes,
                    const ConvertOptions& options, ItemResult& result, int depth, int& budget) {
  items.SetHeaderFromParser(ParseFromHeaders);
  items.SetEmlRecipientParser(ParseEmlRecipients);
  ItemHeader header;
  items.BuildItemHeader(bag, header);

  // The stored headers name the recipients as the sender wrote them.
  std::string headerFile;
  if (!header.transportHeaders.empty()) {
    headerFile = items.TempName(".eml");
    if (!WriteWholeFile(headerFile, header.transportHeaders)) headerFile.clear();
  }
  std::string to, cc, bcc;
  items.ReadRecipients(subnodes, headerFile, to, cc, bcc, result.allRecipients);
  if (!headerFile.empty()) {
    std::error_code ec;
    fs::remove(headerFile, ec);
  }

  static const NameMap kNoNames;
  const NameMap& names = options.store ? options.store->NamedProperties() : kNoNames;
  result.kind = ClassifyItem(header.messageClass);
  result.typeText = ItemTypeText(result.kind);
  result.deliveryTime = header.deliveryTime;
  result.messageClass = header.messageClass;
  result.messageFlags = header.messageFlags;
  result.subject = header.subject;
  result.fromText = header.fromText;
  result.toText = Longer(to, header.toText);
  result.ccText = Longer(cc, header.ccText);
  result.bccText = Longer(bcc, header.bccText);
  result.iconIndex = header.iconIndex;
  result.importance = header.importance;
  result.categories = GetCategories(bag, names);
  if (result.kind != kKindMail) {
    result.itemText = RenderItem(result.kind, bag, names, RowKind::kSave, SubnodeBytesOf(options.store, subnodes));
    if (!result.itemText.empty())
      result.plainBody = ReadBodyText(header.textPath, header.textIsUnicode, header.codePage);
  }

  if (depth == 0 && options.filter && !options.filter(result)) {
    result.fromText.clear();
    result.subject.clear();
    result.deliveryTime = 0;
    return {};
  }

  std::set<std::string> messages;
  items.ReadAttachments(
      subnodes, result.attachments, [&](EmbeddedMessage& nested, const std::string& name) -> std::string {
        if (depth + 1 > kMaxEmbedDepth || budget <= 0) return {};
        --budget;
        ItemResult inner;
        const std::string path = Convert(items, nested.bag, nested.subnodes, options, inner, depth + 1, budget);
        items.SetTextCodePage(header.codePage);  // the nested item set its own
        if (path.empty()) return {};
        const std::string named = MoveToName(items.ItemFolder(), path, name);
        messages.insert(named);
        return named;
      });
  for (AttachmentFile& file : result.attachments) {
    if (messages.count(file.path) != 0) file.mimeTag = "message/rfc822";
  }

  EmlParts parts;
  parts.codePage = header.codePage;
  parts.htmlCodePage = GetU32(bag, 0x3FDE);
  parts.transportHeaders = header.transportHeaders;
  parts.subject = header.subject;
  parts.fromText = result.fromText;
  parts.toText = result.toText;
  parts.ccText = result.ccText;
  parts.bccText = result.bccText;
  parts.dateText = header.dateText;
  parts.deliveryTime = header.deliveryTime;
  if (!header.htmlPath.empty()) {
    parts.isPlain = false;
    parts.bodyPath = header.htmlPath;
  } else if (!header.rtfPath.empty() && !options.directSave) {
    // The pipeline makes the body of the RTF; the EML keeps an empty one.
    result.rtfPath = header.rtfPath;
  } else if (!header.textPath.empty()) {
    parts.bodyPath = header.textPath;
    parts.bodyIsUnicode = header.textIsUnicode;
  } else {
    parts.bodyPath = items.TempName(".txt");
    WriteWholeFile(parts.bodyPath, kFillerBody);
  }
  return BuildEml(items.ItemFolder(), parts, result.attachments);
}

}  // namespace

std::string ParseFromHeaders(const std::string& headers) {
  CkEmail email;
  return email.SetFromMimeText(headers) ? email.From() : std::string();
}

void ParseEmlRecipients(const std::string& emlPath, std::string& to, std::string& cc, std::string& bcc) {
  CkEmail email;
  if (!email.LoadEml(emlPath)) return;
  // Name-only recipients have no address to give.
  const auto gather = [](int count, const auto& address, std::string& out) {
    for (int i = 0; i < count; ++i) {
      const std::string addr = address(i);
      if (!addr.empty()) out += addr + ";";
    }
  };
  gather(
      email.NumTo(), [&](int i) { return email.GetToAddr(i); }, to);
  gather(
      email.NumCC(), [&](int i) { return email.GetCCAddr(i); }, cc);
  gather(
      email.NumBcc(), [&](int i) { return email.GetBccAddr(i); }, bcc);
}

std::string ConvertItem(ItemReader& items, const PropertyBag& bag, const SubnodeLists& subnodes,
                        const ConvertOptions& options, ItemResult& result) {
  result = {};
  int budget = kMaxEmbedded;
  return Convert(items, bag, subnodes, options, result, 0, budget);
}

}  // namespace marrow
