#include "content/item_kind.h"

#include "store/ascii_case.h"

namespace marrow {

int ClassifyItem(const std::string& messageClass) {
  struct ClassRule {
    const char* text;
    int kind;
  };
  static constexpr ClassRule kRules[] = {
      {"IPM.CONTACT", kKindContact}, {"IPM.TASK", kKindTask},        {"IPM.NOTE", kKindMail},
      {"IPM.POST", kKindMail},       {"IPM.APPO", kKindAppointment}, {"IPM.SCHEDULE", kKindAppointment},
      {"MEETING", kKindAppointment}, {"IPM.ACTIVITY", kKindJournal}, {"IPM.STICK", kKindStickyNote},
      {"IPM.DIST", kKindDistList},
  };
  const std::string upper = AsciiUpper(messageClass);
  for (const ClassRule& rule : kRules) {
    if (upper.find(rule.text) != std::string::npos) return rule.kind;
  }
  return kKindMail;
}

std::string ItemTypeText(int kind) {
  switch (kind) {
    case kKindJournal: return "JOURNAL";
    case kKindTask: return "TASK";
    case kKindAppointment: return "CALENDER";
    case kKindContact:
    case kKindDistList: return "CONTACT";
    default: return "EMAIL";
  }
}

}  // namespace marrow
