// The files an item leaves for the engine process, which writes PST, MSG
// and the other formats from them: a text of header lines, and a dump of
// every property.
#pragma once

#include <cstdint>
#include <string>

#include "content/named_lookup.h"
#include "store/property_bag.h"

namespace marrow {

constexpr const char* kEngineItemFileName = "11comtextjj.t";
constexpr const char* kPropertyDumpFileName = "11comtextjj.tProp";

// What the header lines carry.
struct EngineItem {
  std::string typeText;  // "EMAIL", "JOURNAL", "TASK", "CALENDER", "CONTACT"
  std::string rtfPath;   // empty: "NO"
  std::int64_t deliveryTime = 0;
  std::string messageClass;
  std::string subject;
  std::uint32_t messageFlags = 0;
  std::uint32_t iconIndex = 0;
  std::uint32_t importance = 0;
  std::string categories;
  std::string itemText;  // the rendered rows; empty for mail
};

// The text of the header lines, then the item text as it stands.
std::string EngineItemText(const EngineItem& item);

// Writes the engine item file (UTF-16LE, CR LF line ends) to `path`,
// replacing it. False when it cannot be written.
bool WriteEngineItemFile(const EngineItem& item, const std::string& path);

// Writes one record per property in bag order to `path`, replacing it:
// canonical id, type, name length and name (the property set of a named
// property, "FAKE" for the others), value size, value. The delivery time
// is left out, and so is any value with no bytes. False when the file
// cannot be created.
bool WritePropertyDump(const PropertyBag& bag, const NameMap& map, const std::string& path);

}  // namespace marrow
