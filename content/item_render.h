// Text views of the items that are not mail: tasks, journal entries,
// appointments, contacts and distribution lists. Each view is a list of
// "label : value" rows; the save form wraps every row in <ITEM> marks and
// carries rows the preview leaves out (numbers, flags, raw times).
#pragma once

#include <string>

#include "content/item_kind.h"
#include "content/list_members.h"
#include "content/named_lookup.h"
#include "store/property_bag.h"

namespace marrow {

// kSave: the text kept with a saved item; kPreview: the text shown beside a list pane.
enum class RowKind { kSave, kPreview };

std::string RenderTask(const PropertyBag& bag, const NameMap& map, RowKind form);
std::string RenderJournal(const PropertyBag& bag, const NameMap& map, RowKind form);
std::string RenderAppointment(const PropertyBag& bag, const NameMap& map, RowKind form);
// Contacts and distribution lists; `subnodes` may be empty.
std::string RenderContact(const PropertyBag& bag, const NameMap& map, RowKind form, const SubnodeBytes& subnodes);
// The view for `kind`; "" for mail, sticky notes and unknown kinds.
std::string RenderItem(int kind, const PropertyBag& bag, const NameMap& map, RowKind form,
                       const SubnodeBytes& subnodes);

}  // namespace marrow
