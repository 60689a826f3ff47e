#include "content/item_markup.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>

#include "content/property_values.h"

namespace marrow {
namespace {

constexpr std::uint16_t kTypeTime = 0x0040;

// Rows the mark-up reader turns from FILETIME into local time.
constexpr const char* kTimeLabels[] = {"START TIME",          "END TIME", "START DATE", "DUE DATE",
                                       "WEDDING_ANNIVERSARY", "BIRTHDAY"};

// A FILETIME written in decimal; false for anything but digits.
bool ParseDecimal(const std::string& text, std::uint64_t& value) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); })) {
    return false;
  }
  value = std::strtoull(text.c_str(), nullptr, 10);
  return true;
}

std::string LocalTimeOf(const std::string& decimal) {
  std::uint64_t filetime = 0;
  if (!ParseDecimal(decimal, filetime)) return {};
  // One rule for how a time is shown: GetDateText's, over a one-value bag.
  std::uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<std::uint8_t>(filetime >> (8 * i));
  PropertyBag one;
  one.Append(PropertyValue::InMemory(0, kTypeTime, bytes, sizeof bytes));
  return GetDateText(one, 0, false);
}

}  // namespace

std::string ReadMarkup(const std::string& text) {
  static const std::string kOpen = "<ITEM>";
  static const std::string kClose = "</ITEM>";
  static const std::string kSplit = " : ";
  std::string out;
  std::size_t from = 0;
  for (std::size_t end = text.find(kClose); end != std::string::npos; end = text.find(kClose, from)) {
    std::string row = text.substr(from, end - from);
    from = end + kClose.size();
    // What lies before the row's mark is the line break of the row before.
    const std::size_t open = row.find(kOpen);
    if (open != std::string::npos) {
      row.erase(0, open + kOpen.size());
    } else {
      row.erase(0, std::min(row.find_first_not_of("\r\n"), row.size()));
    }
    const std::size_t split = row.find(kSplit);
    std::string label = row.substr(0, split);
    std::string value = split == std::string::npos ? std::string() : row.substr(split + kSplit.size());
    if (std::find(std::begin(kTimeLabels), std::end(kTimeLabels), label) != std::end(kTimeLabels)) {
      value = LocalTimeOf(value);
    }
    out += kOpen + label + kSplit + value + kClose + "\r\n";
  }
  return out;
}

}  // namespace marrow
