// EML files for stored items: a message built from the item's stored
// transport headers, bodies and attachment files, and a plain message for
// the items that are not mail (tasks, contacts, appointments, journal).
// Every text in and out is UTF-8. Failures are tolerated step by step: a
// pass that cannot load or write leaves the file as the pass before made it.
#pragma once

#include <cstdint>
#include <string>

#include "content/item_reader.h"

namespace marrow {

// Turns a headers-only file at `path` into a message that loads: the stored
// multipart boundary (whose parts are gone) is replaced, the spam filters'
// fields and "Authentication-Results" are dropped, and the bodies are set
// from `text` and `html`. False when the file does not load as a message.
bool RepairMime(const std::string& path, const std::string& text, bool isPlain, const std::string& html);

// What BuildEml puts in a message besides the attachments.
struct EmlParts {
  bool isPlain = true;         // the body file is plain text, else HTML
  bool bodyIsUnicode = false;  // the body file holds UTF-16LE, else 8-bit text in `codePage`
  unsigned codePage = 1252;    // of the item's 8-bit texts
  unsigned htmlCodePage = 0;   // the internet code page the item names (0x3FDE), 0 when none
  // Recipients and the delivery time in full; without it the Date comes from
  // `dateText` and the recipients only from the transport headers.
  bool fullHeaders = false;
  std::string transportHeaders;
  std::string subject;
  std::string fromText;
  std::string toText, ccText, bccText;  // ";"-separated, used with fullHeaders
  std::string dateText;                 // as GetDateText writes it
  std::uint64_t deliveryTime = 0;       // FILETIME, used with fullHeaders
  std::string bodyPath;                 // "" for an empty body
};

// Builds the message in a fresh "{GUID}.mht" file of `itemFolder` and
// returns its path (also when a step could not write it).
std::string BuildEml(const std::string& itemFolder, const EmlParts& parts, const AttachmentFiles& attachments);

// What BuildItemEml needs of an item that is not mail.
struct ItemEmlParts {
  std::string itemText;  // the save-form rows, <ITEM> marks included
  std::string typeText;  // "TASK", "CONTACT", ...; the subject when it has none
  std::string subject;
  std::uint64_t deliveryTime = 0;  // FILETIME; 0 writes no Date
  std::string plainBody;
  std::string fromText, toText;
};

// The item as a message: its rows (times made readable) or its plain body as
// HTML, the rows again as an attached "ExtraInformation.txt", and its
// attachment files. Returns the path of a fresh "{GUID}.eml" in `itemFolder`,
// "" when nothing could be written.
std::string BuildItemEml(const std::string& itemFolder, const ItemEmlParts& parts, const AttachmentFiles& attachments);

// Local wall-clock seconds (the fields counted as if UTC) of a GetDateText
// text, with or without its weekday; false when it names no time after 1900.
bool ParseDateText(const std::string& text, std::int64_t* localSeconds);

}  // namespace marrow
