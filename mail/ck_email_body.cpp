#include "mail/ck_email_private.h"

#include <strings.h>

#include "text/charset_convert.h"

namespace marrow {

using namespace ck_detail;

// A text part in the body charset with CRLF line ends; the charset falls
// back to UTF-8 when the text does not fit the chosen one.
Ref<GMimeObject> CkEmail::Impl::MakeTextPart(const std::string& contentType, const std::string& text) {
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
      GMIME_PART(part), g_mime_part_get_best_content_encoding(GMIME_PART(part), GMIME_ENCODING_CONSTRAINT_7BIT));
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
  const bool mixedTop =
      GMIME_IS_MULTIPART(top) && !IsType(top, "multipart", "alternative") && !IsType(top, "multipart", "related");
  if (mixedTop) {
    GMimeMultipart* mixed = GMIME_MULTIPART(top);
    GMimeObject* first = g_mime_multipart_get_count(mixed) > 0 ? g_mime_multipart_get_part(mixed, 0) : nullptr;
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
  if (GMIME_IS_TEXT_PART(body->part)) return LineEndsToLf(Take(g_mime_text_part_get_text(GMIME_TEXT_PART(body->part))));
  return LineEndsToLf(DecodedContent(GMIME_PART(body->part)));
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
  if (g_mime_content_type_is_type(parsed.get(), "text", "html")) return impl_->SetBody(true, text, type);
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
  if (!ConvertCharsetLossy(bytes, charset, "utf-8", &text)) return impl_->Fail("Unknown charset: " + charset);
  return impl_->SetBody(true, text, "text/html");
}

bool CkEmail::AddPlainTextAlternativeBody(const std::string& text) {
  return impl_->SetBody(false, text, "text/plain");
}

bool CkEmail::AddHtmlAlternativeBody(const std::string& html) {
  return impl_->SetBody(true, html, "text/html");
}

}  // namespace marrow
