#include "mail/ck_email.h"

#include <gmime/gmime.h>
#include <strings.h>

#include <ctime>
#include <filesystem>
#include <vector>

#include "mail/address_text.h"
#include "text/charset_convert.h"
#include "mail/encoded_words.h"
#include "mail/file_bytes.h"
#include "mail/mime_library.h"

namespace marrow {
namespace {

// Header fields are always encoded in this charset.
constexpr const char* kHeaderCharset = "utf-8";
// Nesting deeper than this is not walked; the parser's own trees stay far
// below it, and a hostile file cannot take the stack down through us.
constexpr int kMaxDepth = 64;

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename T>
using Ref = std::unique_ptr<T, Unref>;

struct FormatOptionsFree {
  void operator()(GMimeFormatOptions* options) const { g_mime_format_options_free(options); }
};

// How we write: CRLF line ends throughout.
std::unique_ptr<GMimeFormatOptions, FormatOptionsFree> WriteOptions() {
  std::unique_ptr<GMimeFormatOptions, FormatOptionsFree> options(g_mime_format_options_new());
  g_mime_format_options_set_newline_format(options.get(), GMIME_NEWLINE_FORMAT_DOS);
  return options;
}

std::string Take(char* text) {
  std::string out = text ? text : "";
  g_free(text);
  return out;
}

// Mends the encoded words of every header of `object` and of the parts and
// messages inside it.
void MendHeaders(GMimeObject* object) {
  if (object == nullptr) return;
  GMimeHeaderList* headers = g_mime_object_get_header_list(object);
  for (int i = 0, n = headers ? g_mime_header_list_get_count(headers) : 0; i < n; ++i) {
    GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
    const char* raw = g_mime_header_get_raw_value(header);
    if (raw == nullptr) continue;
    const std::string mended = MendEncodedWords(raw);
    if (mended != raw) g_mime_header_set_raw_value(header, mended.c_str());
  }
  if (GMIME_IS_MESSAGE(object)) {
    MendHeaders(g_mime_message_get_mime_part(GMIME_MESSAGE(object)));
  } else if (GMIME_IS_MULTIPART(object)) {
    GMimeMultipart* multipart = GMIME_MULTIPART(object);
    for (int i = 0, n = g_mime_multipart_get_count(multipart); i < n; ++i) {
      MendHeaders(g_mime_multipart_get_part(multipart, i));
    }
  } else if (GMIME_IS_MESSAGE_PART(object)) {
    MendHeaders(GMIME_OBJECT(g_mime_message_part_get_message(GMIME_MESSAGE_PART(object))));
  }
}

// GMime writes a multipart's prologue and epilogue with bare LFs whatever the
// options say, so everything also passes a filter that adds the missing CRs.
std::string WriteObject(GMimeObject* object) {
  // GMime splits long header texts into base64 words that its own reader,
  // and others that join the words first, cut short.
  MendHeaders(object);
  Ref<GMimeStream> memory(g_mime_stream_mem_new());
  Ref<GMimeStream> filtered(g_mime_stream_filter_new(memory.get()));
  Ref<GMimeFilter> crlf(g_mime_filter_unix2dos_new(FALSE));
  g_mime_stream_filter_add(GMIME_STREAM_FILTER(filtered.get()), crlf.get());
  g_mime_object_write_to_stream(object, WriteOptions().get(), filtered.get());
  g_mime_stream_flush(filtered.get());
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()));
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

Ref<GMimeMessage> ParseMessage(std::string_view text) {
  if (text.empty()) return nullptr;
  Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(text.data(), text.size()));
  Ref<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  return Ref<GMimeMessage>(g_mime_parser_construct_message(parser.get(), nullptr));
}

bool IsType(GMimeObject* object, const char* type, const char* subtype) {
  GMimeContentType* contentType = g_mime_object_get_content_type(object);
  return contentType && g_mime_content_type_is_type(contentType, type, subtype);
}

std::string MimeTypeOf(GMimeObject* object) {
  GMimeContentType* contentType = g_mime_object_get_content_type(object);
  return contentType ? Take(g_mime_content_type_get_mime_type(contentType)) : std::string();
}

// ---- What each leaf of the tree is (see the class comment) ----

enum class Role { kPlainBody, kHtmlBody, kAttachment, kRelated, kAttachedMessage };

struct Leaf {
  GMimeObject* part;
  std::vector<GMimeMultipart*> ancestors;  // top first; back() is the parent
  Role role;
  GMimeMultipart* Parent() const { return ancestors.empty() ? nullptr : ancestors.back(); }
};

bool IsPlainType(GMimeObject* part) {
  return IsType(part, "text", "plain") || IsType(part, "text", "enriched") ||
         IsType(part, "text", "richtext");
}

bool MarkedAttachment(GMimeObject* part) {
  GMimeContentDisposition* disposition = g_mime_object_get_content_disposition(part);
  return disposition && g_mime_content_disposition_is_attachment(disposition);
}

bool Named(GMimeObject* part) {
  return GMIME_IS_PART(part) && g_mime_part_get_filename(GMIME_PART(part)) != nullptr;
}

struct Walker {
  std::vector<Leaf> leaves;
  std::vector<GMimeMultipart*> path;
  bool plainTaken = false;
  bool htmlTaken = false;

  void Visit(GMimeObject* object, bool related) {
    if (GMIME_IS_MESSAGE_PART(object)) {
      leaves.push_back({object, path, Role::kAttachedMessage});
      return;
    }
    if (GMIME_IS_MULTIPART(object)) {
      if (static_cast<int>(path.size()) >= kMaxDepth) return;
      GMimeMultipart* multipart = GMIME_MULTIPART(object);
      const bool isRelated = IsType(object, "multipart", "related");
      path.push_back(multipart);
      for (int i = 0; i < g_mime_multipart_get_count(multipart); ++i)
        Visit(g_mime_multipart_get_part(multipart, i), related || (isRelated && i > 0));
      path.pop_back();
      return;
    }
    if (!GMIME_IS_PART(object)) return;
    // Inline images of a related tree usually carry names too; only an
    // explicit "attachment" takes them out of it.
    Role role = Role::kAttachment;
    if (MarkedAttachment(object)) {
      role = Role::kAttachment;
    } else if (related) {
      role = Role::kRelated;
    } else if (Named(object)) {
      role = Role::kAttachment;
    } else if (!htmlTaken && IsType(object, "text", "html")) {
      role = Role::kHtmlBody;
      htmlTaken = true;
    } else if (!plainTaken && IsPlainType(object)) {
      role = Role::kPlainBody;
      plainTaken = true;
    }
    leaves.push_back({object, path, role});
  }
};

std::vector<Leaf> Walk(GMimeMessage* message) {
  Walker walker;
  if (GMimeObject* top = g_mime_message_get_mime_part(message)) walker.Visit(top, false);
  return std::move(walker.leaves);
}

const Leaf* Nth(const std::vector<Leaf>& leaves, Role role, int index) {
  if (index < 0) return nullptr;
  for (const Leaf& leaf : leaves)
    if (leaf.role == role && index-- == 0) return &leaf;
  return nullptr;
}

int Count(const std::vector<Leaf>& leaves, Role role) {
  int n = 0;
  for (const Leaf& leaf : leaves) n += leaf.role == role;
  return n;
}

// True when `holder` is a body leaf or a multipart above one.
bool HoldsBody(const std::vector<Leaf>& leaves, GMimeObject* holder) {
  for (const Leaf& leaf : leaves) {
    if (leaf.role != Role::kPlainBody && leaf.role != Role::kHtmlBody) continue;
    if (leaf.part == holder) return true;
    for (GMimeMultipart* up : leaf.ancestors)
      if (GMIME_OBJECT(up) == holder) return true;
  }
  return false;
}

// Puts `replacement` where `object` is (in `parent`, or as the message's top
// part) and hands back the reference the tree held on `object`.
Ref<GMimeObject> Detach(GMimeMessage* message, GMimeObject* object, GMimeMultipart* parent,
                        GMimeObject* replacement) {
  if (parent) {
    const int index = g_mime_multipart_index_of(parent, object);
    return Ref<GMimeObject>(g_mime_multipart_replace(parent, index, replacement));
  }
  g_object_ref(object);
  g_mime_message_set_mime_part(message, replacement);
  return Ref<GMimeObject>(object);
}

std::string DecodedContent(GMimePart* part) {
  GMimeDataWrapper* content = g_mime_part_get_content(part);
  if (!content) return {};
  Ref<GMimeStream> memory(g_mime_stream_mem_new());
  g_mime_data_wrapper_write_to_stream(content, memory.get());
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()));
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

void SetContent(GMimePart* part, std::string_view bytes) {
  Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
  Ref<GMimeDataWrapper> wrapper(
      g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
  g_mime_part_set_content(part, wrapper.get());
}

// The file name as both the disposition's "filename" and the type's "name".
// Left alone, GMime encodes a non-ASCII name in the smallest charset that
// holds it (ISO-8859-5 for Cyrillic); UTF-8 is the one every reader knows.
void SetFileName(GMimeObject* part, const std::string& filename) {
  g_mime_object_set_content_disposition_parameter(part, "filename", filename.c_str());
  g_mime_object_set_content_type_parameter(part, "name", filename.c_str());
  GMimeContentDisposition* disposition = g_mime_object_get_content_disposition(part);
  GMimeParam* fromDisposition =
      disposition ? g_mime_param_list_get_parameter(
                        g_mime_content_disposition_get_parameters(disposition), "filename")
                  : nullptr;
  GMimeParam* fromType = g_mime_param_list_get_parameter(
      g_mime_content_type_get_parameters(g_mime_object_get_content_type(part)), "name");
  for (GMimeParam* param : {fromDisposition, fromType})
    if (param) g_mime_param_set_charset(param, "UTF-8");
}

// ---- Addresses ----

void Flatten(InternetAddressList* list, std::vector<MailAddress>* out, int depth = 0) {
  if (!list) return;
  for (int i = 0; i < internet_address_list_length(list); ++i) {
    InternetAddress* address = internet_address_list_get_address(list, i);
    const char* name = internet_address_get_name(address);
    if (INTERNET_ADDRESS_IS_MAILBOX(address)) {
      const char* addr = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address));
      out->push_back({name ? name : "", addr ? addr : ""});
    } else if (INTERNET_ADDRESS_IS_GROUP(address)) {
      InternetAddressList* members =
          internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address));
      if (members && internet_address_list_length(members) > 0 && depth < 2)
        Flatten(members, out, depth + 1);
      else if (name && *name)
        out->push_back({name, ""});
    }
  }
}

Ref<InternetAddress> MakeAddress(const MailAddress& entry) {
  InternetAddress* address =
      entry.addr.empty() ? internet_address_group_new(entry.name.c_str())
                         : internet_address_mailbox_new(entry.name.c_str(), entry.addr.c_str());
  internet_address_set_charset(address, kHeaderCharset);
  return Ref<InternetAddress>(address);
}

// ---- Header walk ----

struct HeaderField {
  std::string name;
  std::string value;
};

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

}  // namespace

// Owns one reference to the message; every GMime pointer reached from it
// (parts, address lists) is borrowed from the tree and valid only until the
// tree changes.
struct CkEmail::Impl {
  Ref<GMimeMessage> message;
  std::string charset;
  std::string lastError;

  Impl() : message((EnsureMimeLibrary(), g_mime_message_new(TRUE))) {}

  bool Fail(std::string text) {
    lastError = std::move(text);
    return false;
  }
  InternetAddressList* List(GMimeAddressType type) const {
    return g_mime_message_get_addresses(message.get(), type);
  }
  std::vector<MailAddress> Addresses(GMimeAddressType type) const {
    std::vector<MailAddress> out;
    Flatten(List(type), &out);
    return out;
  }
  bool AddMultiple(GMimeAddressType type, const std::string& list);
  MailAddress Recipient(GMimeAddressType type, int index) const;
  std::vector<HeaderField> Fields() const {
    return SplitHeader(
        Take(g_mime_object_get_headers(GMIME_OBJECT(message.get()), WriteOptions().get())));
  }
  Ref<GMimeObject> MakeTextPart(const std::string& contentType, const std::string& text);
  bool SetBody(bool html, const std::string& text, const std::string& contentType);
  std::string Body(Role role) const;
  const Leaf* Attachment(const std::vector<Leaf>& leaves, int index);
  void AddToMixed(GMimeObject* part);
};

bool CkEmail::Impl::AddMultiple(GMimeAddressType type, const std::string& list) {
  const std::vector<MailAddress> entries = ParseAddressEntries(list);
  if (entries.empty()) return Fail("No email addresses were provided");
  for (const MailAddress& entry : entries)
    internet_address_list_add(List(type), MakeAddress(entry).get());
  lastError.clear();
  return true;
}

MailAddress CkEmail::Impl::Recipient(GMimeAddressType type, int index) const {
  const std::vector<MailAddress> all = Addresses(type);
  if (index < 0 || static_cast<std::size_t>(index) >= all.size()) return {};
  return all[static_cast<std::size_t>(index)];
}

// A text part in the body charset with CRLF line ends; the charset falls
// back to UTF-8 when the text does not fit the chosen one.
Ref<GMimeObject> CkEmail::Impl::MakeTextPart(const std::string& contentType,
                                             const std::string& text) {
  Ref<GMimeContentType> type(g_mime_content_type_parse(nullptr, contentType.c_str()));
  std::string bytes = LineEndsToCrlf(text);
  std::string partCharset = charset.empty() ? "utf-8" : charset;
  std::string converted;
  if (strcasecmp(partCharset.c_str(), "utf-8") != 0) {
    if (ConvertCharsetExact(bytes, "utf-8", partCharset, &converted))
      bytes = std::move(converted);
    else
      partCharset = "utf-8";
  }
  // The caller's type keeps its other parameters ("format=flowed"); the
  // charset is ours.
  GMimeTextPart* part = g_mime_text_part_new();
  Ref<GMimeObject> object(GMIME_OBJECT(part));
  g_mime_object_set_content_type(object.get(), type.get());
  SetContent(GMIME_PART(part), bytes);
  g_mime_text_part_set_charset(part, partCharset.c_str());
  g_mime_part_set_content_encoding(
      GMIME_PART(part),
      g_mime_part_get_best_content_encoding(GMIME_PART(part), GMIME_ENCODING_CONSTRAINT_7BIT));
  return object;
}

bool CkEmail::Impl::SetBody(bool html, const std::string& text, const std::string& contentType) {
  Ref<GMimeObject> part = MakeTextPart(contentType, text);
  GMimeMessage* msg = message.get();
  const std::vector<Leaf> leaves = Walk(msg);
  if (const Leaf* same = Nth(leaves, html ? Role::kHtmlBody : Role::kPlainBody, 0)) {
    Detach(msg, same->part, same->Parent(), part.get());
    lastError.clear();
    return true;
  }
  GMimeObject* top = g_mime_message_get_mime_part(msg);
  if (!top) {
    g_mime_message_set_mime_part(msg, part.get());
    lastError.clear();
    return true;
  }
  // The body holder: the top part itself, or the first part of a top-level
  // mixed. Without one, the new body goes in front of whatever is there.
  GMimeObject* holder = top;
  GMimeMultipart* holderParent = nullptr;
  const bool mixedTop = GMIME_IS_MULTIPART(top) && !IsType(top, "multipart", "alternative") &&
                        !IsType(top, "multipart", "related");
  if (mixedTop) {
    GMimeMultipart* mixed = GMIME_MULTIPART(top);
    GMimeObject* first =
        g_mime_multipart_get_count(mixed) > 0 ? g_mime_multipart_get_part(mixed, 0) : nullptr;
    if (!first || !HoldsBody(leaves, first)) {
      g_mime_multipart_insert(mixed, 0, part.get());
      lastError.clear();
      return true;
    }
    holder = first;
    holderParent = mixed;
  } else if (!HoldsBody(leaves, top)) {
    Ref<GMimeMultipart> mixed(g_mime_multipart_new_with_subtype("mixed"));
    Ref<GMimeObject> old = Detach(msg, top, nullptr, GMIME_OBJECT(mixed.get()));
    g_mime_multipart_add(mixed.get(), part.get());
    g_mime_multipart_add(mixed.get(), old.get());
    lastError.clear();
    return true;
  }
  if (IsType(holder, "multipart", "alternative")) {
    GMimeMultipart* alternative = GMIME_MULTIPART(holder);
    int at = 0;
    if (html) {
      at = g_mime_multipart_get_count(alternative);
      const Leaf* plain = Nth(leaves, Role::kPlainBody, 0);
      const int plainAt = plain ? g_mime_multipart_index_of(alternative, plain->part) : -1;
      if (plainAt >= 0) at = plainAt + 1;
    }
    g_mime_multipart_insert(alternative, at, part.get());
    lastError.clear();
    return true;
  }
  Ref<GMimeMultipart> alternative(g_mime_multipart_new_with_subtype("alternative"));
  Ref<GMimeObject> old = Detach(msg, holder, holderParent, GMIME_OBJECT(alternative.get()));
  g_mime_multipart_add(alternative.get(), html ? old.get() : part.get());
  g_mime_multipart_add(alternative.get(), html ? part.get() : old.get());
  lastError.clear();
  return true;
}

std::string CkEmail::Impl::Body(Role role) const {
  const std::vector<Leaf> leaves = Walk(message.get());
  const Leaf* body = Nth(leaves, role, 0);
  if (!body) return {};
  if (GMIME_IS_TEXT_PART(body->part))
    return LineEndsToLf(Take(g_mime_text_part_get_text(GMIME_TEXT_PART(body->part))));
  return LineEndsToLf(DecodedContent(GMIME_PART(body->part)));
}

const Leaf* CkEmail::Impl::Attachment(const std::vector<Leaf>& leaves, int index) {
  const Leaf* leaf = Nth(leaves, Role::kAttachment, index);
  if (!leaf) {
    char text[96];
    std::snprintf(text, sizeof text, "Index out of range: no attachment at index = %d.", index);
    lastError = text;
  }
  return leaf;
}

// Appends to the top-level multipart/mixed, making one around the current
// top part when there is none.
void CkEmail::Impl::AddToMixed(GMimeObject* part) {
  GMimeMessage* msg = message.get();
  GMimeObject* top = g_mime_message_get_mime_part(msg);
  if (top && IsType(top, "multipart", "mixed")) {
    g_mime_multipart_add(GMIME_MULTIPART(top), part);
    return;
  }
  Ref<GMimeMultipart> mixed(g_mime_multipart_new_with_subtype("mixed"));
  if (top) {
    Ref<GMimeObject> old = Detach(msg, top, nullptr, GMIME_OBJECT(mixed.get()));
    g_mime_multipart_add(mixed.get(), old.get());
  } else {
    g_mime_message_set_mime_part(msg, GMIME_OBJECT(mixed.get()));
  }
  g_mime_multipart_add(mixed.get(), part);
}

// ---- The class ----

CkEmail::CkEmail() : impl_(std::make_unique<Impl>()) {}
CkEmail::~CkEmail() = default;
CkEmail::CkEmail(CkEmail&&) noexcept = default;
CkEmail& CkEmail::operator=(CkEmail&&) noexcept = default;

const std::string& CkEmail::LastErrorText() const {
  return impl_->lastError;
}

bool CkEmail::LoadEml(const std::string& path) {
  std::string bytes;
  if (!ReadWholeFile(path, &bytes)) return impl_->Fail("Failed to read file: " + path);
  return SetFromMimeText(bytes);
}

bool CkEmail::SetFromMimeText(std::string_view text) {
  Ref<GMimeMessage> parsed = ParseMessage(text);
  if (!parsed) return impl_->Fail("Failed to parse MIME text");
  impl_->message = std::move(parsed);
  impl_->lastError.clear();
  return true;
}

std::string CkEmail::GetMime() const {
  return WriteObject(GMIME_OBJECT(impl_->message.get()));
}

bool CkEmail::SaveEml(const std::string& path) {
  if (!WriteWholeFile(path, GetMime())) return impl_->Fail("Failed to write file: " + path);
  impl_->lastError.clear();
  return true;
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
  if (!entry.name.empty() || !entry.addr.empty())
    internet_address_list_add(from, MakeAddress(entry).get());
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

bool CkEmail::put_Charset(const std::string& charset) {
  if (!charset.empty() && !CharsetKnown(charset)) return impl_->Fail("Unknown charset: " + charset);
  impl_->charset = charset;
  impl_->lastError.clear();
  return true;
}

const std::string& CkEmail::Charset() const {
  return impl_->charset;
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

bool CkEmail::AddFileAttachment(const std::string& path, const std::string& contentType) {
  std::string bytes;
  if (!ReadWholeFile(path, &bytes)) return impl_->Fail("Failed to add file attachment");
  const std::string filename = std::filesystem::path(path).filename().string();
  Ref<GMimeContentType> type(g_mime_content_type_parse(
      nullptr, contentType.empty() ? "application/octet-stream" : contentType.c_str()));
  Ref<GMimeObject> part;
  if (g_mime_content_type_is_type(type.get(), "message", "rfc822")) {
    // A mail file is attached as a message, which may not be base64 encoded.
    Ref<GMimeMessage> inner = ParseMessage(bytes);
    if (!inner) return impl_->Fail("Failed to add file attachment");
    part.reset(GMIME_OBJECT(g_mime_message_part_new_with_message("rfc822", inner.get())));
  } else {
    // Multipart types would make the bytes a tree; they go as plain data.
    if (g_mime_content_type_is_type(type.get(), "multipart", "*"))
      type.reset(g_mime_content_type_new("application", "octet-stream"));
    part.reset(GMIME_OBJECT(g_mime_part_new()));
    g_mime_object_set_content_type(part.get(), type.get());
    SetContent(GMIME_PART(part.get()), bytes);
    g_mime_part_set_content_encoding(GMIME_PART(part.get()), GMIME_CONTENT_ENCODING_BASE64);
  }
  g_mime_object_set_disposition(part.get(), GMIME_DISPOSITION_ATTACHMENT);
  SetFileName(part.get(), filename);
  impl_->AddToMixed(part.get());
  impl_->lastError.clear();
  return true;
}

bool CkEmail::AddAttachmentHeader(int index, const std::string& name, const std::string& value) {
  const std::vector<Leaf> leaves = Walk(impl_->message.get());
  const Leaf* leaf = impl_->Attachment(leaves, index);
  if (!leaf) return false;
  if (name.empty()) return impl_->Fail("Empty header field name");
  for (int guard = 0; guard < 1000 && g_mime_object_remove_header(leaf->part, name.c_str());
       ++guard) {
  }
  g_mime_object_append_header(leaf->part, name.c_str(), value.c_str(), kHeaderCharset);
  impl_->lastError.clear();
  return true;
}

void CkEmail::DropAttachments() {
  GMimeMessage* msg = impl_->message.get();
  const std::vector<Leaf> leaves = Walk(msg);
  for (const Leaf& leaf : leaves) {
    if (leaf.role != Role::kAttachment) continue;
    if (!leaf.Parent()) {
      // The whole message was one attachment: an empty text stands in.
      Ref<GMimeObject> empty = impl_->MakeTextPart("text/plain", "");
      g_mime_message_set_mime_part(msg, empty.get());
      return;
    }
    g_mime_multipart_remove(leaf.Parent(), leaf.part);
    // Multiparts left empty go too, all the way up below the top.
    for (std::size_t i = leaf.ancestors.size() - 1; i > 0; --i) {
      if (g_mime_multipart_get_count(leaf.ancestors[i]) > 0) break;
      g_mime_multipart_remove(leaf.ancestors[i - 1], GMIME_OBJECT(leaf.ancestors[i]));
    }
  }
  // A top-level mixed left with the body alone gives way to it.
  GMimeObject* top = g_mime_message_get_mime_part(msg);
  if (top && IsType(top, "multipart", "mixed")) {
    GMimeMultipart* mixed = GMIME_MULTIPART(top);
    if (g_mime_multipart_get_count(mixed) == 0) {
      Ref<GMimeObject> empty = impl_->MakeTextPart("text/plain", "");
      g_mime_message_set_mime_part(msg, empty.get());
    } else if (g_mime_multipart_get_count(mixed) == 1 &&
               !GMIME_IS_MESSAGE_PART(g_mime_multipart_get_part(mixed, 0))) {
      Ref<GMimeObject> only(GMIME_OBJECT(g_object_ref(g_mime_multipart_get_part(mixed, 0))));
      g_mime_message_set_mime_part(msg, only.get());
    }
  }
}

int CkEmail::NumAttachments() const {
  return Count(Walk(impl_->message.get()), Role::kAttachment);
}

std::string CkEmail::GetAttachmentFilename(int index) const {
  const std::vector<Leaf> leaves = Walk(impl_->message.get());
  const Leaf* leaf = impl_->Attachment(leaves, index);
  if (!leaf) return {};
  const char* name = g_mime_part_get_filename(GMIME_PART(leaf->part));
  return name ? name : "";
}

std::string CkEmail::GetAttachmentContentType(int index) const {
  const std::vector<Leaf> leaves = Walk(impl_->message.get());
  const Leaf* leaf = impl_->Attachment(leaves, index);
  return leaf ? MimeTypeOf(leaf->part) : std::string();
}

bool CkEmail::GetAttachmentData(int index, std::string* bytes) const {
  bytes->clear();
  const std::vector<Leaf> leaves = Walk(impl_->message.get());
  const Leaf* leaf = impl_->Attachment(leaves, index);
  if (!leaf) return false;
  *bytes = DecodedContent(GMIME_PART(leaf->part));
  return true;
}

int CkEmail::NumAttachedMessages() const {
  return Count(Walk(impl_->message.get()), Role::kAttachedMessage);
}

std::unique_ptr<CkEmail> CkEmail::GetAttachedMessage(int index) const {
  const std::vector<Leaf> leaves = Walk(impl_->message.get());
  const Leaf* leaf = Nth(leaves, Role::kAttachedMessage, index);
  GMimeMessage* inner =
      leaf ? g_mime_message_part_get_message(GMIME_MESSAGE_PART(leaf->part)) : nullptr;
  if (!inner) {
    impl_->Fail("Index out of range: no attached message at index = " + std::to_string(index) +
                ".");
    return nullptr;
  }
  auto copy = std::make_unique<CkEmail>();
  if (!copy->SetFromMimeText(WriteObject(GMIME_OBJECT(inner)))) return nullptr;
  return copy;
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
  g_mime_object_append_header(GMIME_OBJECT(impl_->message.get()), name.c_str(), value.c_str(),
                              kHeaderCharset);
}

void CkEmail::RemoveHeaderField(const std::string& name) {
  // Content-* fields of the top level live on the top part.
  GMimeObject* holders[] = {GMIME_OBJECT(impl_->message.get()),
                            g_mime_message_get_mime_part(impl_->message.get())};
  for (GMimeObject* holder : holders) {
    if (!holder) continue;
    GMimeHeaderList* list = g_mime_object_get_header_list(holder);
    for (int guard = g_mime_header_list_get_count(list);
         guard >= 0 && g_mime_object_remove_header(holder, name.c_str()); --guard) {
    }
  }
}

bool CkEmail::HasPlainTextBody() const {
  return Count(Walk(impl_->message.get()), Role::kPlainBody) > 0;
}
bool CkEmail::HasHtmlBody() const {
  return Count(Walk(impl_->message.get()), Role::kHtmlBody) > 0;
}
std::string CkEmail::GetPlainTextBody() const {
  return impl_->Body(Role::kPlainBody);
}
std::string CkEmail::GetHtmlBody() const {
  return impl_->Body(Role::kHtmlBody);
}

bool CkEmail::SetTextBody(const std::string& text, const std::string& contentType) {
  const std::string type = contentType.empty() ? "text/plain" : contentType;
  Ref<GMimeContentType> parsed(g_mime_content_type_parse(nullptr, type.c_str()));
  if (g_mime_content_type_is_type(parsed.get(), "text", "html"))
    return impl_->SetBody(true, text, type);
  const bool plain = g_mime_content_type_is_type(parsed.get(), "text", "plain") ||
                     g_mime_content_type_is_type(parsed.get(), "text", "enriched") ||
                     g_mime_content_type_is_type(parsed.get(), "text", "richtext");
  if (!plain) return impl_->Fail("Unsupported body content type: " + type);
  return impl_->SetBody(false, text, type);
}

bool CkEmail::SetHtmlBody(const std::string& html) {
  return impl_->SetBody(true, html, "text/html");
}

bool CkEmail::SetMbHtmlBody(const std::string& charset, std::string_view bytes) {
  std::string text;
  if (!ConvertCharsetLossy(bytes, charset, "utf-8", &text))
    return impl_->Fail("Unknown charset: " + charset);
  return impl_->SetBody(true, text, "text/html");
}

bool CkEmail::AddPlainTextAlternativeBody(const std::string& text) {
  return impl_->SetBody(false, text, "text/plain");
}

bool CkEmail::AddHtmlAlternativeBody(const std::string& html) {
  return impl_->SetBody(true, html, "text/html");
}

}  // namespace marrow
