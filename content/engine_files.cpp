#include "content/engine_files.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <vector>

#include "content/property_values.h"

namespace marrow {
namespace {

constexpr std::uint16_t kDeliveryTime = 0x0E06;
// The engine must not take a completion percentage from the store: this
// long id is always written as eight zero bytes.
constexpr std::uint16_t kPercentComplete = 0x8102;

void PutLE(std::vector<std::uint8_t>& out, std::uint64_t v, int width) {
  for (int i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

}  // namespace

std::string EngineItemText(const EngineItem& item) {
  std::string subject = item.subject;
  for (char& c : subject) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  std::string cls = item.messageClass;
  if (cls.rfind("REPORT.IPM.Note", 0) == 0 || cls.empty()) cls = "IPM.Note";
  char numbers[64];
  std::string text = item.typeText + "\r\n";
  text += (item.rtfPath.empty() ? std::string("NO") : item.rtfPath) + "\r\n";
  std::snprintf(numbers, sizeof numbers, "%" PRId64 "\r\n", item.deliveryTime);
  text += numbers;
  text += cls + "<SUBJECT>" + subject + "\r\n";
  std::snprintf(numbers, sizeof numbers, "%d\r\n%ld\r\n%ld", static_cast<int>(item.messageFlags),
                static_cast<long>(item.iconIndex), static_cast<long>(item.importance));
  text += numbers;
  if (!item.categories.empty()) text += "<CATEGORY>" + item.categories;
  text += "\r\n";
  return text + item.itemText;
}

bool WriteEngineItemFile(const EngineItem& item, const std::string& path) {
  std::remove(path.c_str());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  const std::vector<std::uint8_t> wide = Utf8ToUtf16(EngineItemText(item));
  out.write(reinterpret_cast<const char*>(wide.data()), static_cast<std::streamsize>(wide.size()));
  return static_cast<bool>(out);
}

bool WritePropertyDump(const PropertyBag& bag, const NameMap& map, const std::string& path) {
  std::remove(path.c_str());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  for (const PropertyValue& v : bag.Values()) {
    if (v.propId == kDeliveryTime) continue;
    std::vector<std::uint8_t> bytes = ValueBytes(v);  // a spill file is read whole
    if (bytes.empty()) continue;
    std::string guid;
    const std::uint16_t canonical = static_cast<std::uint16_t>(LongIdFor(map, v.propId, &guid));
    const std::string name = guid.empty() ? "FAKE" : guid;
    if (canonical == kPercentComplete && bytes.size() == 8) bytes.assign(8, 0);
    std::vector<std::uint8_t> record;
    PutLE(record, canonical, 2);
    PutLE(record, v.propType, 2);
    PutLE(record, name.size(), 2);
    record.insert(record.end(), name.begin(), name.end());
    PutLE(record, bytes.size(), 4);
    record.insert(record.end(), bytes.begin(), bytes.end());
    out.write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
  }
  return static_cast<bool>(out);
}

}  // namespace marrow
