#include "saving/save_filter.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "store/ascii_case.h"

namespace marrow {
namespace {

// Include passes when any value is found in the field, exclude refuses
// when any is; both sides in lower case.
bool TextPasses(int mode, const std::vector<std::string>& values, const std::string& field) {
  if (mode != kFilterInclude && mode != kFilterExclude) return true;
  const std::string text = AsciiLower(field);
  const bool found = std::any_of(values.begin(), values.end(),
                                 [&](const std::string& v) { return text.find(AsciiLower(v)) != std::string::npos; });
  return mode == kFilterInclude ? found : !found;
}

}  // namespace

std::string ItemTypeLabel(const std::string& messageClass) {
  static const struct {
    const char* text;
    const char* label;
  } kLabels[] = {{"IPM.CONTACT", "Contacts"}, {"IPM.TASK", "Task"},
                 {"IPM.NOTE", "Email"},       {"IPM.POST", "Email"},
                 {"IPM.APPO", "Calendar"},    {"IPM.SCHEDULE", "Calendar"},
                 {"MEETING", "Calendar"},     {"IPM.ACTIVITY", "Journal"},
                 {"IPM.STICK", "Notes"},      {"IPM.DIST", "Distribution List"}};
  const std::string upper = AsciiUpper(messageClass);
  for (const auto& l : kLabels) {
    if (upper.find(l.text) != std::string::npos) return l.label;
  }
  return "Email";
}

bool FolderAllowed(const SaveFilter* filter, const std::string& name) {
  return filter == nullptr || TextPasses(filter->folderInclude, filter->folderValues, name);
}

bool ItemAllowed(const SaveFilter* filter, const std::string& from, const std::string& to, const std::string& subject,
                 std::int64_t date, const std::string& messageClass) {
  if (filter == nullptr) return true;
  if (!TextPasses(filter->fromInclude, filter->fromValues, from)) return false;
  if (!TextPasses(filter->toInclude, filter->toValues, to)) return false;
  if (!TextPasses(filter->subjectInclude, filter->subjectValues, subject)) return false;
  if (filter->itemTypeInclude == kFilterInclude || filter->itemTypeInclude == kFilterExclude) {
    const std::string label = ItemTypeLabel(messageClass);
    const bool listed =
        std::find(filter->itemTypeValues.begin(), filter->itemTypeValues.end(), label) != filter->itemTypeValues.end();
    if (listed != (filter->itemTypeInclude == kFilterInclude)) return false;
  }
  if (filter->dateInclude == kFilterInclude || filter->dateInclude == kFilterExclude) {
    const bool inside = std::any_of(filter->dates.begin(), filter->dates.end(),
                                    [&](const DateRange& r) { return date >= r.first && date <= r.second; });
    if (inside != (filter->dateInclude == kFilterInclude)) return false;
  }
  return true;
}

}  // namespace marrow
