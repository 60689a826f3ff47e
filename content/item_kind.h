// What kind of item a message class names, and the type text a save
// writes for it.
#pragma once

#include <string>

namespace marrow {

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

}  // namespace marrow
