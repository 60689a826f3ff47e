#include "mail/ck_email_private.h"

#include <strings.h>

#include <ctime>

namespace marrow {
namespace ck_detail {

void Flatten(InternetAddressList* list, std::vector<MailAddress>* out, int depth) {
  if (!list) return;
  for (int i = 0; i < internet_address_list_length(list); ++i) {
    InternetAddress* address = internet_address_list_get_address(list, i);
    const char* name = internet_address_get_name(address);
    if (INTERNET_ADDRESS_IS_MAILBOX(address)) {
      const char* addr = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address));
      out->push_back({name ? name : "", addr ? addr : ""});
    } else if (INTERNET_ADDRESS_IS_GROUP(address)) {
      InternetAddressList* members = internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address));
      if (members && internet_address_list_length(members) > 0 && depth < 2)
        Flatten(members, out, depth + 1);
      else if (name && *name)
        out->push_back({name, ""});
    }
  }
}

Ref<InternetAddress> MakeAddress(const MailAddress& entry) {
  InternetAddress* address = entry.addr.empty() ? internet_address_group_new(entry.name.c_str())
                                                : internet_address_mailbox_new(entry.name.c_str(), entry.addr.c_str());
  internet_address_set_charset(address, kHeaderCharset);
  return Ref<InternetAddress>(address);
}

// Splits written header text into fields, unfolding continuation lines.
std::vector<HeaderField> SplitHeader(std::string_view text) {
  std::vector<HeaderField> fields;
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) continue;
    if ((line[0] == ' ' || line[0] == '\t') && !fields.empty()) {
      fields.back().value.append(line);
      continue;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    fields.push_back({std::string(line.substr(0, colon)), std::string(line.substr(colon + 1))});
  }
  return fields;
}

std::string DecodeHeaderValue(const std::string& raw) {
  std::string decoded = Take(g_mime_utils_header_decode_text(nullptr, raw.c_str()));
  const std::size_t first = decoded.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return decoded.substr(first, decoded.find_last_not_of(" \t") - first + 1);
}

// Local wall-clock seconds to UTC seconds and the zone's offset then.
std::int64_t LocalWallToUtc(std::int64_t localSeconds, long* offsetSeconds) {
  const std::time_t wall = static_cast<std::time_t>(localSeconds);
  std::tm fields{};
  gmtime_r(&wall, &fields);
  fields.tm_isdst = -1;
  const std::time_t utc = std::mktime(&fields);
  *offsetSeconds = fields.tm_gmtoff;
  return utc == static_cast<std::time_t>(-1) ? localSeconds : static_cast<std::int64_t>(utc);
}

}  // namespace ck_detail

using namespace ck_detail;

bool CkEmail::Impl::AddMultiple(GMimeAddressType type, const std::string& list) {
  const std::vector<MailAddress> entries = ParseAddressEntries(list);
  if (entries.empty()) return Fail("No email addresses were provided");
  for (const MailAddress& entry : entries) internet_address_list_add(List(type), MakeAddress(entry).get());
  lastError.clear();
  return true;
}

MailAddress CkEmail::Impl::Recipient(GMimeAddressType type, int index) const {
  const std::vector<MailAddress> all = Addresses(type);
  if (index < 0 || static_cast<std::size_t>(index) >= all.size()) return {};
  return all[static_cast<std::size_t>(index)];
}

std::string CkEmail::From() const {
  const std::vector<MailAddress> from = impl_->Addresses(GMIME_ADDRESS_TYPE_FROM);
  if (!from.empty()) return FormatAddress(from.front());
  // A field the address parser gave up on is still worth showing.
  return GetHeaderField("From");
}

std::string CkEmail::FromName() const {
  const std::vector<MailAddress> from = impl_->Addresses(GMIME_ADDRESS_TYPE_FROM);
  return from.empty() ? std::string() : from.front().name;
}

std::string CkEmail::FromAddress() const {
  const std::vector<MailAddress> from = impl_->Addresses(GMIME_ADDRESS_TYPE_FROM);
  return from.empty() ? std::string() : from.front().addr;
}

void CkEmail::put_From(const std::string& text) {
  InternetAddressList* from = impl_->List(GMIME_ADDRESS_TYPE_FROM);
  internet_address_list_clear(from);
  const MailAddress entry = ParseAddressEntry(text);
  if (!entry.name.empty() || !entry.addr.empty()) internet_address_list_add(from, MakeAddress(entry).get());
}

std::string CkEmail::Subject() const {
  const char* subject = g_mime_message_get_subject(impl_->message.get());
  return subject ? subject : "";
}

void CkEmail::put_Subject(const std::string& text) {
  g_mime_message_set_subject(impl_->message.get(), text.c_str(), kHeaderCharset);
}

void CkEmail::put_EmailDate(std::int64_t utcSeconds) {
  GDateTime* date = g_date_time_new_from_unix_utc(utcSeconds);
  if (!date) return;
  g_mime_message_set_date(impl_->message.get(), date);
  g_date_time_unref(date);
}

void CkEmail::put_LocalDate(std::int64_t localSeconds) {
  long offset = 0;
  const std::int64_t utc = LocalWallToUtc(localSeconds, &offset);
  GDateTime* inUtc = g_date_time_new_from_unix_utc(utc);
  if (!inUtc) return;
  GTimeZone* zone = g_time_zone_new_offset(static_cast<gint32>(offset));
  GDateTime* local = g_date_time_to_timezone(inUtc, zone);
  if (local) g_mime_message_set_date(impl_->message.get(), local);
  if (local) g_date_time_unref(local);
  g_time_zone_unref(zone);
  g_date_time_unref(inUtc);
}

bool CkEmail::get_EmailDate(std::int64_t* utcSeconds) const {
  GDateTime* date = g_mime_message_get_date(impl_->message.get());
  if (!date) return false;
  *utcSeconds = g_date_time_to_unix(date);
  return true;
}

bool CkEmail::AddMultipleTo(const std::string& list) {
  return impl_->AddMultiple(GMIME_ADDRESS_TYPE_TO, list);
}
bool CkEmail::AddMultipleCC(const std::string& list) {
  return impl_->AddMultiple(GMIME_ADDRESS_TYPE_CC, list);
}
bool CkEmail::AddMultipleBcc(const std::string& list) {
  return impl_->AddMultiple(GMIME_ADDRESS_TYPE_BCC, list);
}

int CkEmail::NumTo() const {
  return static_cast<int>(impl_->Addresses(GMIME_ADDRESS_TYPE_TO).size());
}
int CkEmail::NumCC() const {
  return static_cast<int>(impl_->Addresses(GMIME_ADDRESS_TYPE_CC).size());
}
int CkEmail::NumBcc() const {
  return static_cast<int>(impl_->Addresses(GMIME_ADDRESS_TYPE_BCC).size());
}

std::string CkEmail::GetTo(int index) const {
  return FormatAddress(impl_->Recipient(GMIME_ADDRESS_TYPE_TO, index));
}
std::string CkEmail::GetCC(int index) const {
  return FormatAddress(impl_->Recipient(GMIME_ADDRESS_TYPE_CC, index));
}
std::string CkEmail::GetBcc(int index) const {
  return FormatAddress(impl_->Recipient(GMIME_ADDRESS_TYPE_BCC, index));
}
std::string CkEmail::GetToAddr(int index) const {
  return impl_->Recipient(GMIME_ADDRESS_TYPE_TO, index).addr;
}
std::string CkEmail::GetCCAddr(int index) const {
  return impl_->Recipient(GMIME_ADDRESS_TYPE_CC, index).addr;
}
std::string CkEmail::GetBccAddr(int index) const {
  return impl_->Recipient(GMIME_ADDRESS_TYPE_BCC, index).addr;
}

int CkEmail::NumHeaderFields() const {
  return static_cast<int>(impl_->Fields().size());
}

std::string CkEmail::GetHeaderFieldName(int index) const {
  const std::vector<HeaderField> fields = impl_->Fields();
  if (index < 0 || static_cast<std::size_t>(index) >= fields.size()) return {};
  return fields[static_cast<std::size_t>(index)].name;
}

std::string CkEmail::GetHeaderFieldValue(int index) const {
  const std::vector<HeaderField> fields = impl_->Fields();
  if (index < 0 || static_cast<std::size_t>(index) >= fields.size()) return {};
  return DecodeHeaderValue(fields[static_cast<std::size_t>(index)].value);
}

std::string CkEmail::GetHeaderField(const std::string& name) const {
  for (const HeaderField& field : impl_->Fields())
    if (strcasecmp(field.name.c_str(), name.c_str()) == 0) return DecodeHeaderValue(field.value);
  return {};
}

void CkEmail::AddHeaderField(const std::string& name, const std::string& value) {
  if (name.empty()) return;
  g_mime_object_append_header(GMIME_OBJECT(impl_->message.get()), name.c_str(), value.c_str(), kHeaderCharset);
}

void CkEmail::RemoveHeaderField(const std::string& name) {
  // Content-* fields of the top level live on the top part.
  GMimeObject* holders[] = {GMIME_OBJECT(impl_->message.get()), g_mime_message_get_mime_part(impl_->message.get())};
  for (GMimeObject* holder : holders) {
    if (!holder) continue;
    GMimeHeaderList* list = g_mime_object_get_header_list(holder);
    for (int guard = g_mime_header_list_get_count(list);
         guard >= 0 && g_mime_object_remove_header(holder, name.c_str()); --guard) {
    }
  }
}

}  // namespace marrow
