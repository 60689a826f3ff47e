// The save filters: text filters in both modes, item types by class, date
// ranges with their ends included, and the order of the tests.
#include <gtest/gtest.h>

#include "saving/save_filter.h"

namespace marrow {
namespace {

TEST(SaveFilter, TextFiltersMatchAnywhereWithoutCase) {
  SaveFilter f;
  f.fromInclude = kFilterInclude;
  f.fromValues = {"ACME.com", "boss"};
  EXPECT_TRUE(ItemAllowed(&f, "Jane <jane@acme.COM>", "", "", 0, ""));
  EXPECT_TRUE(ItemAllowed(&f, "The Boss", "", "", 0, ""));
  EXPECT_FALSE(ItemAllowed(&f, "someone@else.org", "", "", 0, ""));
  f.fromInclude = kFilterExclude;
  EXPECT_FALSE(ItemAllowed(&f, "Jane <jane@acme.COM>", "", "", 0, ""));
  EXPECT_TRUE(ItemAllowed(&f, "someone@else.org", "", "", 0, ""));
  // The first refusal decides: a passing subject does not save a refused sender.
  f.subjectInclude = kFilterInclude;
  f.subjectValues = {"invoice"};
  EXPECT_FALSE(ItemAllowed(&f, "boss", "", "Invoice 7", 0, ""));
  EXPECT_FALSE(ItemAllowed(&f, "x", "", "Lunch", 0, ""));
  EXPECT_TRUE(ItemAllowed(&f, "x", "", "Invoice 7", 0, ""));
  // Without a filter record (chosen items) everything passes.
  EXPECT_TRUE(ItemAllowed(nullptr, "boss", "", "", 0, ""));

  // Folders are judged by their own label: a child of a refused folder alone.
  f.folderInclude = kFilterExclude;
  f.folderValues = {"junk"};
  EXPECT_FALSE(FolderAllowed(&f, "Junk E-Mail"));
  EXPECT_TRUE(FolderAllowed(&f, "Inbox"));
  EXPECT_TRUE(FolderAllowed(nullptr, "Junk E-Mail"));
}

TEST(SaveFilter, ItemTypesByTheFirstTextOfTheClass) {
  const std::pair<const char*, const char*> labels[] = {
      {"IPM.Contact", "Contacts"},           {"ipm.note.smime", "Email"},
      {"IPM.DistList", "Distribution List"}, {"IPM.Schedule.Meeting.Request", "Calendar"},
      {"IPM.StickyNote", "Notes"},           {"IPM.Activity", "Journal"},
      {"REPORT.IPM.Note.NDR", "Email"},      {"", "Email"}};
  for (const auto& [messageClass, label] : labels) EXPECT_EQ(ItemTypeLabel(messageClass), label) << messageClass;
  SaveFilter f;
  f.itemTypeInclude = kFilterInclude;
  f.itemTypeValues = {"Calendar"};
  EXPECT_TRUE(ItemAllowed(&f, "", "", "", 0, "IPM.Appointment"));
  EXPECT_FALSE(ItemAllowed(&f, "", "", "", 0, "IPM.Note"));
  f.itemTypeInclude = kFilterExclude;
  EXPECT_FALSE(ItemAllowed(&f, "", "", "", 0, "IPM.Appointment"));
}

TEST(SaveFilter, DateRangesIncludeBothEnds) {
  SaveFilter f;
  f.dateInclude = kFilterInclude;
  f.dates = {{100, 200}, {500, 600}};
  EXPECT_TRUE(ItemAllowed(&f, "", "", "", 200, ""));
  EXPECT_TRUE(ItemAllowed(&f, "", "", "", 500, ""));
  EXPECT_FALSE(ItemAllowed(&f, "", "", "", 201, ""));
  f.dateInclude = kFilterExclude;
  EXPECT_FALSE(ItemAllowed(&f, "", "", "", 100, ""));
  EXPECT_TRUE(ItemAllowed(&f, "", "", "", 300, ""));
}

}  // namespace
}  // namespace marrow
