#include "content/multi_values.h"

#include <algorithm>

#include "store/ascii_case.h"

namespace marrow {
namespace {

constexpr std::uint16_t kTypeMultiString8 = 0x101E;
constexpr std::uint16_t kTypeMultiUnicode = 0x101F;
constexpr std::uint32_t kCategoriesId = 0x8013;

// The [start, end) ranges of the values of a count-offsets-data layout.
// Offsets that point outside the data or do not grow are skipped; each value
// runs to the next offset kept, the last to the end.
std::vector<std::pair<std::size_t, std::size_t>> ValueRanges(Bytes bytes) {
  std::vector<std::pair<std::size_t, std::size_t>> ranges;
  if (bytes.size() < 8) return ranges;
  const std::size_t count = std::min<std::size_t>(ReadU32(bytes, 0), (bytes.size() - 4) / 4);
  const std::size_t dataStart = 4 + 4 * count;
  std::vector<std::size_t> starts;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = ReadU32(bytes, 4 + 4 * i);
    if (at < dataStart || at >= bytes.size() || (!starts.empty() && at <= starts.back())) continue;
    starts.push_back(at);
  }
  for (std::size_t i = 0; i < starts.size(); ++i) {
    ranges.emplace_back(starts[i], i + 1 < starts.size() ? starts[i + 1] : bytes.size());
  }
  return ranges;
}

bool IsMultiString(std::uint16_t type) {
  return type == kTypeMultiUnicode || type == kTypeMultiString8;
}

std::string Join(const std::vector<std::string>& values) {
  std::string out;
  for (const std::string& v : values) {
    if (v.empty()) continue;
    if (!out.empty()) out += ';';
    out += v;
  }
  return out;
}

// A multi-value binary as the list reader takes it: a count, then 8-byte
// entries whose second word is an offset. (The store keeps 4-byte offsets,
// as for multi-value strings; read this way, a list of n members gives at
// most n/2 slices, and each slice runs over two members.)
std::vector<std::pair<std::size_t, std::size_t>> BinaryRanges(Bytes bytes) {
  std::vector<std::pair<std::size_t, std::size_t>> ranges;
  if (bytes.size() < 8) return ranges;
  const std::size_t count = std::min<std::size_t>(ReadU32(bytes, 0), (bytes.size() - 4) / 8);
  std::vector<std::size_t> starts;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = ReadU32(bytes, 4 + 8 * i + 4);
    if (at >= bytes.size() || (!starts.empty() && at <= starts.back())) continue;
    starts.push_back(at);
  }
  for (std::size_t i = 0; i < starts.size(); ++i) {
    ranges.emplace_back(starts[i], i + 1 < starts.size() ? starts[i + 1] : bytes.size());
  }
  return ranges;
}

}  // namespace

std::vector<std::string> ReadMultiString(const PropertyValue& value, unsigned codePage) {
  std::vector<std::string> values;
  if (!IsMultiString(value.propType)) return values;
  const std::vector<std::uint8_t> bytes = ValueBytes(value);
  for (const auto& [start, end] : ValueRanges(bytes)) {
    values.push_back(value.propType == kTypeMultiUnicode ? Utf16ToUtf8(bytes.data() + start, end - start)
                                                         : CodePageToUtf8(bytes.data() + start, end - start, codePage));
  }
  return values;
}

std::string GetCategories(const PropertyBag& bag, const NameMap& map) {
  const PropertyValue* named = FindNamed(bag, map, kCategoriesId);
  if (named != nullptr) {
    std::string joined = Join(ReadMultiString(*named, TextCodePage(bag)));
    if (!joined.empty()) return joined;
  }
  // Stores that lost the name map still keep the category names, which
  // carry the word in their default form ("Red Category").
  for (const PropertyValue& v : bag.Values()) {
    if (&v == named || !IsMultiString(v.propType)) continue;
    const std::vector<std::string> values = ReadMultiString(v, TextCodePage(bag));
    for (const std::string& one : values) {
      if (AsciiLower(one).find("category") != std::string::npos) return Join(values);
    }
  }
  return {};
}

bool SplitMultiBinary(Bytes bytes, std::vector<std::vector<std::uint8_t>>& slices) {
  slices.clear();
  for (const auto& [start, end] : BinaryRanges(bytes)) {
    slices.emplace_back(bytes.begin() + start, bytes.begin() + end);
  }
  return !slices.empty();
}

}  // namespace marrow
