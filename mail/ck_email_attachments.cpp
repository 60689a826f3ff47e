#include "mail/ck_email_private.h"

#include <cstdio>
#include <filesystem>

#include "mail/file_bytes.h"

namespace marrow {

using namespace ck_detail;

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

bool CkEmail::AddFileAttachment(const std::string& path, const std::string& contentType) {
  std::string bytes;
  if (!ReadWholeFile(path, &bytes)) return impl_->Fail("Failed to add file attachment");
  const std::string filename = std::filesystem::path(path).filename().string();
  Ref<GMimeContentType> type(
      g_mime_content_type_parse(nullptr, contentType.empty() ? "application/octet-stream" : contentType.c_str()));
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
  for (int guard = 0; guard < 1000 && g_mime_object_remove_header(leaf->part, name.c_str()); ++guard) {
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
    } else if (g_mime_multipart_get_count(mixed) == 1 && !GMIME_IS_MESSAGE_PART(g_mime_multipart_get_part(mixed, 0))) {
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
  GMimeMessage* inner = leaf ? g_mime_message_part_get_message(GMIME_MESSAGE_PART(leaf->part)) : nullptr;
  if (!inner) {
    impl_->Fail("Index out of range: no attached message at index = " + std::to_string(index) + ".");
    return nullptr;
  }
  auto copy = std::make_unique<CkEmail>();
  if (!copy->SetFromMimeText(WriteObject(GMIME_OBJECT(inner)))) return nullptr;
  return copy;
}

}  // namespace marrow
