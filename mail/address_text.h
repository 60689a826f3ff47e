// Recipient and sender text as the store and our callers write it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace marrow {

// A display name with its address; either may be empty, not both.
struct MailAddress {
  std::string name;
  std::string addr;
};

// One entry: "Name <addr>", the store's "Name<addr>", "\"Name\" <addr>",
// a bare "addr" (anything holding "@"), or a bare display name. Surrounding
// blanks and quotes around the name are dropped. An empty entry gives an
// empty MailAddress.
MailAddress ParseAddressEntry(std::string_view entry);

// Entries separated by ";"; empty entries are skipped.
std::vector<MailAddress> ParseAddressEntries(std::string_view list);

// "Name <addr>", or "addr" without a name, or "Name" without an address.
std::string FormatAddress(const MailAddress& address);

}  // namespace marrow
