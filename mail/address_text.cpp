#include "mail/address_text.h"

namespace marrow {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Drops one pair of surrounding double quotes (or the parentheses of an old
// "addr (Name)" comment) and the backslashes that escape inside them.
std::string Unquote(std::string_view text) {
  text = Trim(text);
  const bool quoted =
      text.size() >= 2 && ((text.front() == '"' && text.back() == '"') || (text.front() == '(' && text.back() == ')'));
  if (!quoted) return std::string(text);
  text = text.substr(1, text.size() - 2);
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    out.push_back(text[i]);
  }
  return std::string(Trim(out));
}

}  // namespace

MailAddress ParseAddressEntry(std::string_view entry) {
  entry = Trim(entry);
  MailAddress out;
  const std::size_t open = entry.rfind('<');
  const std::size_t close = open == std::string_view::npos ? open : entry.find('>', open);
  if (close != std::string_view::npos) {
    out.name = Unquote(entry.substr(0, open));
    out.addr = std::string(Trim(entry.substr(open + 1, close - open - 1)));
    return out;
  }
  const std::size_t at = entry.find('@');
  if (at == std::string_view::npos) {
    out.name = Unquote(entry);
    return out;
  }
  // "addr" alone, or an address with loose words around it ("addr (Name)").
  std::size_t begin = entry.find_last_of(kBlanks, at);
  begin = begin == std::string_view::npos ? 0 : begin + 1;
  std::size_t end = entry.find_first_of(kBlanks, at);
  if (end == std::string_view::npos) end = entry.size();
  out.addr = std::string(entry.substr(begin, end - begin));
  std::string rest(Trim(entry.substr(0, begin)));
  const std::string_view after = Trim(entry.substr(end));
  if (!rest.empty() && !after.empty()) rest += ' ';
  rest += after;
  out.name = Unquote(rest);
  return out;
}

std::vector<MailAddress> ParseAddressEntries(std::string_view list) {
  std::vector<MailAddress> out;
  while (!list.empty()) {
    const std::size_t semi = list.find(';');
    MailAddress one = ParseAddressEntry(list.substr(0, semi));
    if (!one.name.empty() || !one.addr.empty()) out.push_back(std::move(one));
    if (semi == std::string_view::npos) break;
    list.remove_prefix(semi + 1);
  }
  return out;
}

std::string FormatAddress(const MailAddress& address) {
  if (address.addr.empty()) return address.name;
  if (address.name.empty()) return address.addr;
  return address.name + " <" + address.addr + ">";
}

}  // namespace marrow
