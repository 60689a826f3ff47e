#include "session/find_items.h"

#include "content/property_values.h"
#include "session/item_rows.h"
#include "session/session.h"
#include "store/ascii_case.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

bool Contains(const std::string& field, const std::string& part) {
  return part.empty() || AsciiLower(field).find(AsciiLower(part)) != std::string::npos;
}

// The To line of an item; the list row does not carry it.
std::string DisplayTo(StoreReader& reader, const ItemRow& row) {
  SubnodeLists subnodes;
  reader.ReadSubnodeList(row.subnodeBlock, subnodes);
  PropertyBag bag;
  if (!reader.ReadBagFromBlock(row.dataBlock, bag, subnodes)) return {};
  return GetString(bag, 0x0E04, false);
}

}  // namespace

std::vector<FindHit> FindItems(Session& session, const FindQuery& query) {
  std::vector<FindHit> hits;
  for (std::size_t s = 0; s < session.SourceCount(); ++s) {
    Source& source = session.At(s);
    if (!source.IsParsed()) continue;
    for (const FolderPath& folder : source.Folders()) {
      for (const ListRow& row : FolderItemRows(source, folder.row)) {
        const ItemRow& item = row.item;
        if (!Contains(item.fromText, query.from) || !Contains(item.subject, query.subject) ||
            !Contains(item.dateText, query.date)) {
          continue;
        }
        if (!query.to.empty() && !Contains(DisplayTo(source.Reader(), item), query.to)) continue;
        hits.push_back({s, folder.path, item});
      }
    }
  }
  return hits;
}

}  // namespace marrow
