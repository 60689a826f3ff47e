// One stored message as the rest of the system uses it: the texts of its
// header, its bodies as files, its recipients and its attachments on disk.
// Tolerant throughout: anything may be missing, and a damaged item still
// gives whatever can be read.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "content/property_values.h"
#include "store/property_bag.h"
#include "store/store_reader.h"

namespace marrow {

struct ItemHeader {
  std::string fromText;
  std::string toText;            // 0x0E04
  std::string ccText;            // 0x0E03
  std::string bccText;           // 0x0E02
  std::string textPath;          // the winning plain body, or empty
  std::string htmlPath;          // 0x1013, or empty
  std::string rtfPath;           // the decompressed RTF body; empty when that failed
  std::string transportHeaders;  // 0x007D
  std::string subject;           // 0x0037, marker stripped
  std::string dateText;          // 0x0E06 as text
  bool textIsUnicode = false;
  unsigned codePage = 1252;        // of the item's 8-bit texts and bodies
  std::uint64_t deliveryTime = 0;  // FILETIME
  std::string messageClass;        // 0x001A
  std::uint32_t messageFlags = 0;  // 0x0E07
  std::string subjectCopy;
  std::uint32_t iconIndex = 0;   // 0x1080
  std::uint32_t importance = 0;  // 0x0017
};

// One attachment of an item, written out to a file.
struct AttachmentFile {
  std::string path;
  std::string name;       // as the message names it
  std::string contentId;  // 0x3712, or empty
  std::string mimeTag;    // 0x370E, or empty
};
using AttachmentFiles = std::vector<AttachmentFile>;

// One row of the item list.
struct ItemRow {
  std::uint32_t importance = 0;
  std::uint32_t messageFlags = 0;
  std::string messageClass;
  std::string subject;  // prefix and subject
  std::string fromText;
  std::string dateText;
  std::uint32_t iconIndex = 0;
  bool isLost = false;
  std::uint64_t dataBlock = 0, nodeId = 0, subnodeBlock = 0;
};

// The list's image for an item: the kind for other items (8 to 13); for
// mail, replied 6, forwarded 7, read 1, unread 0.
int ItemIcon(int kind, std::uint32_t iconIndex, std::uint32_t messageFlags);
// The message flag that marks attachments.
constexpr std::uint32_t kFlagHasAttachments = 0x10;

// An embedded message met among the attachments: its properties and subnodes.
struct EmbeddedMessage {
  PropertyBag bag;
  SubnodeLists subnodes;
};

// Gives the From field of a block of stored transport headers ("" when none).
using HeaderFromParser = std::function<std::string(const std::string& headers)>;
// Gives the recipients an EML file names: To, Cc, Bcc as "addr;addr;" lists.
using EmlRecipientParser =
    std::function<void(const std::string& emlPath, std::string& to, std::string& cc, std::string& bcc)>;

class ItemReader {
 public:
  // `itemFolder` holds the item's temporary files (bodies, attachments).
  ItemReader(StoreReader& reader, std::string itemFolder);

  void SetHeaderFromParser(HeaderFromParser parser) { parseFrom_ = std::move(parser); }
  void SetEmlRecipientParser(EmlRecipientParser parser) { parseRecipients_ = std::move(parser); }
  // The code page of the item being read, for the recipient rows and
  // attachments that name none themselves. BuildItemHeader sets it.
  void SetTextCodePage(unsigned codePage) { codePage_ = codePage; }
  unsigned TextCodePage() const { return codePage_; }

  const std::string& ItemFolder() const { return itemFolder_; }
  // Removes every file of the item folder (not its subfolders) and makes
  // sure the folder exists.
  void ClearItemFolder();
  // "<folder>/{GUID}<extension>", a fresh name each call.
  std::string TempName(const std::string& extension) const;

  // The sender as the list and the header show it.
  std::string SenderText(const PropertyBag& bag) const;
  void BuildItemHeader(const PropertyBag& bag, ItemHeader& header);
  // The recipients: from the EML when it names any, else from the
  // recipient table, else from a raw search of the table's bytes.
  void ReadRecipients(const SubnodeLists& subnodes, const std::string& emlPath, std::string& to, std::string& cc,
                      std::string& bcc, std::vector<std::string>& all);
  // Every attachment of the item, in subnode order; embedded messages are
  // handed to `onEmbedded`, which returns the file that stands for them.
  void ReadAttachments(const SubnodeLists& subnodes, AttachmentFiles& files,
                       const std::function<std::string(EmbeddedMessage&, const std::string& name)>& onEmbedded);
  // Writes one attachment's data to the item folder. Empty when it has no
  // data or no name. `nested` receives an embedded message's properties.
  std::string ReadOneAttachment(std::uint64_t subnodeId, const SubnodeLists& subnodes, std::string& name,
                                std::string& contentId, std::string& mimeTag, EmbeddedMessage* nested, bool& isMessage);

  // Reads one item block for the item list. False when nothing is listed:
  // the block cannot be read, or it looks like noise.
  bool ReadItemRow(std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock, bool isLost,
                   ItemRow& row);

 private:
  StoreReader& reader_;
  std::string itemFolder_;
  HeaderFromParser parseFrom_;
  EmlRecipientParser parseRecipients_;
  unsigned codePage_ = kDefaultCodePage;
};

}  // namespace marrow
