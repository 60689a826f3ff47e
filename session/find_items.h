// Find: the messages of the recovered folders whose sender, recipients,
// subject and date contain the texts asked for.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "content/item_reader.h"

namespace marrow {

class Session;

// Each text is a part of its field, in any ASCII case; an empty one matches
// everything. A hit matches all four.
struct FindQuery {
  std::string from;
  std::string to;  // the display list of To recipients
  std::string subject;
  std::string date;  // as the item list shows it
};

struct FindHit {
  std::size_t source;      // index in the session
  std::string folderPath;  // as the tree shows it
  ItemRow item;
};

// Searches every parsed source, folders in tree order, items in list order.
std::vector<FindHit> FindItems(Session& session, const FindQuery& query);

}  // namespace marrow
