// Sender and recipient text in the forms the store and our callers use.
#include <gtest/gtest.h>

#include "mail/address_text.h"

namespace marrow {
namespace {

struct EntryCase {
  const char* entry;
  const char* name;
  const char* addr;
};

TEST(AddressText, EachEntryFormGivesNameAndAddress) {
  const EntryCase cases[] = {
      {"Anna Berg <anna@example.org>", "Anna Berg", "anna@example.org"},
      {"Anna Berg<anna@example.org>", "Anna Berg", "anna@example.org"},  // the store's form
      {"  \"Berg, Anna\"  < anna@example.org > ", "Berg, Anna", "anna@example.org"},
      {"\"Say \\\"hi\\\"\" <hi@example.org>", "Say \"hi\"", "hi@example.org"},
      {"<bare@example.org>", "", "bare@example.org"},
      {"bare@example.org", "", "bare@example.org"},
      {"bare@example.org (Anna Berg)", "Anna Berg", "bare@example.org"},
      {"Anna Berg", "Anna Berg", ""},
      {"Anna Berg <>", "Anna Berg", ""},
      {"Иван Петров<ivan@example.ru>", "Иван Петров", "ivan@example.ru"},
      {"", "", ""},
      {"   ", "", ""},
  };
  for (const EntryCase& c : cases) {
    const MailAddress got = ParseAddressEntry(c.entry);
    EXPECT_EQ(got.name, c.name) << "entry: [" << c.entry << "]";
    EXPECT_EQ(got.addr, c.addr) << "entry: [" << c.entry << "]";
  }
}

TEST(AddressText, ListsSplitOnSemicolonsAndSkipEmptyEntries) {
  // Commas belong to names: only ";" separates.
  const auto commas = ParseAddressEntries(" ;Berg, Anna <anna@x.org>;; ;Bo<bo@x.org>;");
  ASSERT_EQ(commas.size(), 2u);
  EXPECT_EQ(commas[0].name, "Berg, Anna");
  EXPECT_EQ(commas[1].addr, "bo@x.org");

  EXPECT_TRUE(ParseAddressEntries("").empty());
  EXPECT_TRUE(ParseAddressEntries(" ; ;").empty());
}

}  // namespace
}  // namespace marrow
