// The insides of CkEmail, shared by its source files and by nothing else:
// GMime ownership, the part tree, header fields, and the state of one
// message. Only files of mail/ include this.
#pragma once

#include <gmime/gmime.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mail/address_text.h"
#include "mail/ck_email.h"
#include "mail/mime_library.h"

namespace marrow {
namespace ck_detail {

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

// ---- GMime I/O (ck_email_io.cpp) ----

// How we write: CRLF line ends throughout.
std::unique_ptr<GMimeFormatOptions, FormatOptionsFree> WriteOptions();
// Takes a string GMime allocated, freeing it; "" for null.
std::string Take(char* text);
// The object as we write it (encoded words mended, CRLF line ends).
std::string WriteObject(GMimeObject* object);
// Null for empty or unreadable text.
Ref<GMimeMessage> ParseMessage(std::string_view text);
// A leaf part's content, transfer encoding undone.
std::string DecodedContent(GMimePart* part);
void SetContent(GMimePart* part, std::string_view bytes);

// ---- The part tree (ck_email_parts.cpp) ----

bool IsType(GMimeObject* object, const char* type, const char* subtype);
std::string MimeTypeOf(GMimeObject* object);

// What each leaf of the tree is (see the class comment).
enum class Role { kPlainBody, kHtmlBody, kAttachment, kRelated, kAttachedMessage };

struct Leaf {
  GMimeObject* part;
  std::vector<GMimeMultipart*> ancestors;  // top first; back() is the parent
  Role role;
  GMimeMultipart* Parent() const { return ancestors.empty() ? nullptr : ancestors.back(); }
};

// The leaves of the message in tree order; attached messages are not entered.
std::vector<Leaf> Walk(GMimeMessage* message);
// The `index`th leaf of `role`; null out of range.
const Leaf* Nth(const std::vector<Leaf>& leaves, Role role, int index);
int Count(const std::vector<Leaf>& leaves, Role role);
// True when `holder` is a body leaf or a multipart above one.
bool HoldsBody(const std::vector<Leaf>& leaves, GMimeObject* holder);
// Puts `replacement` where `object` is (in `parent`, or as the message's top
// part) and hands back the reference the tree held on `object`.
Ref<GMimeObject> Detach(GMimeMessage* message, GMimeObject* object, GMimeMultipart* parent, GMimeObject* replacement);
// The file name as both the disposition's "filename" and the type's "name".
// Left alone, GMime encodes a non-ASCII name in the smallest charset that
// holds it (ISO-8859-5 for Cyrillic); UTF-8 is the one every reader knows.
void SetFileName(GMimeObject* part, const std::string& filename);

// ---- Header fields and addresses (ck_email_fields.cpp) ----

// Mailboxes of the list, groups flattened into their members (or their
// name, when empty).
void Flatten(InternetAddressList* list, std::vector<MailAddress>* out, int depth = 0);
Ref<InternetAddress> MakeAddress(const MailAddress& entry);

struct HeaderField {
  std::string name;
  std::string value;
};
// Splits written header text into fields, unfolding continuation lines.
std::vector<HeaderField> SplitHeader(std::string_view text);
// Unfolded value decoded from RFC 2047 and trimmed.
std::string DecodeHeaderValue(const std::string& raw);
// Local wall-clock seconds to UTC seconds and the zone's offset then.
std::int64_t LocalWallToUtc(std::int64_t localSeconds, long* offsetSeconds);

}  // namespace ck_detail

// Owns one reference to the message; every GMime pointer reached from it
// (parts, address lists) is borrowed from the tree and valid only until the
// tree changes.
struct CkEmail::Impl {
  ck_detail::Ref<GMimeMessage> message;
  std::string charset;
  std::string lastError;

  Impl() : message((EnsureMimeLibrary(), g_mime_message_new(TRUE))) {}

  bool Fail(std::string text) {
    lastError = std::move(text);
    return false;
  }
  InternetAddressList* List(GMimeAddressType type) const { return g_mime_message_get_addresses(message.get(), type); }
  std::vector<MailAddress> Addresses(GMimeAddressType type) const {
    std::vector<MailAddress> out;
    ck_detail::Flatten(List(type), &out);
    return out;
  }
  bool AddMultiple(GMimeAddressType type, const std::string& list);
  MailAddress Recipient(GMimeAddressType type, int index) const;
  std::vector<ck_detail::HeaderField> Fields() const {
    return ck_detail::SplitHeader(
        ck_detail::Take(g_mime_object_get_headers(GMIME_OBJECT(message.get()), ck_detail::WriteOptions().get())));
  }
  ck_detail::Ref<GMimeObject> MakeTextPart(const std::string& contentType, const std::string& text);
  bool SetBody(bool html, const std::string& text, const std::string& contentType);
  std::string Body(ck_detail::Role role) const;
  const ck_detail::Leaf* Attachment(const std::vector<ck_detail::Leaf>& leaves, int index);
  void AddToMixed(GMimeObject* part);
};

}  // namespace marrow
