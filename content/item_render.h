// Text views of the items that are not mail: tasks, journal entries,
// appointments, contacts and distribution lists. Each view is a list of
// "label : value" rows; the save form wraps every row in <ITEM> marks and
// carries rows the preview leaves out (numbers, flags, raw times).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "content/named_lookup.h"
#include "content/property_values.h"
#include "store/byte_order.h"
#include "store/property_bag.h"

namespace marrow {

// kSave: the text kept with a saved item; kPreview: the text shown beside a list pane.
enum class RowKind { kSave, kPreview };

// Kinds of item, as ClassifyItem gives them.
enum ItemKind : int {
  kKindMail = 0,
  kKindJournal = 8,
  kKindTask = 9,
  kKindAppointment = 10,
  kKindContact = 11,
  kKindStickyNote = 12,
  kKindDistList = 13,
};

// The kind of an item from its message class (case does not matter).
int ClassifyItem(const std::string& messageClass);
// "JOURNAL", "TASK", "CALENDER", "CONTACT" (contacts and lists); "EMAIL" for the rest.
std::string ItemTypeText(int kind);

// The raw bytes of every subnode of an item; asked for only when a
// distribution list keeps its members nowhere else.
using SubnodeBytes = std::function<std::vector<std::vector<std::uint8_t>>()>;

std::string RenderTask(const PropertyBag& bag, const NameMap& map, RowKind form);
std::string RenderJournal(const PropertyBag& bag, const NameMap& map, RowKind form);
std::string RenderAppointment(const PropertyBag& bag, const NameMap& map, RowKind form);
// Contacts and distribution lists; `subnodes` may be empty.
std::string RenderContact(const PropertyBag& bag, const NameMap& map, RowKind form,
                          const SubnodeBytes& subnodes);
// The view for `kind`; "" for mail, sticky notes and unknown kinds.
std::string RenderItem(int kind, const PropertyBag& bag, const NameMap& map, RowKind form,
                       const SubnodeBytes& subnodes);

// A save-form text with every time row (start, end, due, birthday...) turned
// from its decimal FILETIME into local time; anything outside the rows is dropped.
std::string ReadMarkup(const std::string& text);

// --- The values behind the views ------------------------------------------
// The item's categories joined with ";"; "" when it has none.
std::string GetCategories(const PropertyBag& bag, const NameMap& map);
// The values of a multi-value string (0x101F or 0x101E); empty for other types.
std::vector<std::string> ReadMultiString(const PropertyValue& value, unsigned codePage = kDefaultCodePage);
// Slices of a multi-value binary laid out as count, offsets, data. True when
// at least one slice was cut.
bool SplitMultiBinary(Bytes bytes, std::vector<std::vector<std::uint8_t>>& slices);

// One member of a distribution list, from a one-off entry identifier.
struct ListMember {
  std::string name, addressType, address;
  bool operator==(const ListMember&) const = default;
};
// False when `entry` is no one-off identifier or is cut short.
bool ReadOneOffEntry(Bytes entry, ListMember& member);
// The members of a distribution list, empty names and repeats dropped.
std::vector<ListMember> ListMembers(const PropertyBag& bag, const NameMap& map,
                                    const SubnodeBytes& subnodes);

}  // namespace marrow
