#include "content/list_members.h"

#include <algorithm>

#include "content/multi_values.h"
#include "content/property_values.h"

namespace marrow {
namespace {

constexpr std::uint16_t kTypeMultiBinary = 0x1102;
constexpr std::uint32_t kListOneOffMembers = 0x8054;

// Where a list may keep its one-off members, tried in this order: fixed
// local ids, and at 0 the local id the map gives the one-off member list.
constexpr std::uint16_t kMemberSlots[] = {0x8083, 0x8100, 0, 0x803D, 0x8105};

// Identifies a one-off entry identifier.
constexpr std::uint8_t kOneOffProvider[16] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                                              0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
constexpr std::size_t kOneOffHeader = 24;  // flags 4, provider 16, version 2, flags 2
constexpr std::uint16_t kOneOffUnicode = 0x8000;

// A NUL-terminated text at `at`, wide or 8-bit; `at` moves past its terminator.
std::string TakeText(Bytes bytes, std::size_t& at, bool wide) {
  const std::size_t start = at;
  if (wide) {
    while (at + 1 < bytes.size() && (bytes[at] != 0 || bytes[at + 1] != 0)) at += 2;
    const std::string text = Utf16ToUtf8(bytes.data() + start, std::min(at, bytes.size()) - start);
    at = std::min(at + 2, bytes.size());
    return text;
  }
  while (at < bytes.size() && bytes[at] != 0) ++at;
  const std::string text = CodePageToUtf8(bytes.data() + start, at - start, kDefaultCodePage);
  at = std::min(at + 1, bytes.size());
  return text;
}

// Appends the one-off members of each slice not already in `members`.
void AddMembers(const std::vector<std::vector<std::uint8_t>>& slices, std::vector<ListMember>& members) {
  for (const std::vector<std::uint8_t>& slice : slices) {
    ListMember m;
    if (!ReadOneOffEntry(slice, m) || m.name.empty()) continue;
    if (std::find(members.begin(), members.end(), m) == members.end()) members.push_back(std::move(m));
  }
}

}  // namespace

bool ReadOneOffEntry(Bytes entry, ListMember& member) {
  if (entry.size() < kOneOffHeader ||
      !std::equal(std::begin(kOneOffProvider), std::end(kOneOffProvider), entry.begin() + 4)) {
    return false;
  }
  const bool wide = (ReadU16(entry, 22) & kOneOffUnicode) != 0;
  std::size_t at = kOneOffHeader;
  member.name = TakeText(entry, at, wide);
  member.addressType = TakeText(entry, at, wide);
  member.address = TakeText(entry, at, wide);
  return true;
}

std::vector<ListMember> ListMembers(const PropertyBag& bag, const NameMap& map, const SubnodeBytes& subnodes) {
  std::vector<ListMember> members;
  std::vector<std::vector<std::uint8_t>> slices;
  for (std::uint16_t slot : kMemberSlots) {
    const PropertyValue* v = bag.Find(slot != 0 ? slot : LocalIdFor(map, kListOneOffMembers));
    if (v == nullptr || v->propType != kTypeMultiBinary) continue;
    if (SplitMultiBinary(ValueBytes(*v), slices)) AddMembers(slices, members);
    if (!members.empty()) return members;
  }
  if (!subnodes) return members;
  for (const std::vector<std::uint8_t>& bytes : subnodes()) {
    if (SplitMultiBinary(bytes, slices)) AddMembers(slices, members);
  }
  return members;
}

}  // namespace marrow
