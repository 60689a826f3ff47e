// Sender and recipient text in the forms the store and our callers use.
#include <gtest/gtest.h>

#include "mail/address_text.h"

namespace marrow {
namespace {

TEST(AddressText, EachEntryFormGivesNameAndAddress) {
  const char* const cases[][3] = {
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
  for (const auto& [entry, name, addr] : cases) {
    const MailAddress got = ParseAddressEntry(entry);
    EXPECT_EQ(got.name, name) << "entry: [" << entry << "]";
    EXPECT_EQ(got.addr, addr) << "entry: [" << entry << "]";
  }
}

TEST(AddressText, ListsSplitOnSemicolonsAndSkipEmptyEntries) {
  // Commas belong to names: only ";" separates.
  const auto commas = ParseAddressEntries(" ;Berg, Anna <anna@x.org>;; ;Bo<bo@x.org>;");
  ASSERT_EQ(commas.size(), 2u);
  EXPECT_EQ(commas[0].name, "Berg, Anna");
  EXPECT_EQ(commas[1].addr, "bo@x.org");
  EXPECT_TRUE(ParseAddressEntries(" ; ;").empty());
}

}  // namespace
}  // namespace marrow
