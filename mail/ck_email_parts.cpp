#include "mail/ck_email_private.h"

namespace marrow {
namespace ck_detail {

bool IsType(GMimeObject* object, const char* type, const char* subtype) {
  GMimeContentType* contentType = g_mime_object_get_content_type(object);
  return contentType && g_mime_content_type_is_type(contentType, type, subtype);
}

std::string MimeTypeOf(GMimeObject* object) {
  GMimeContentType* contentType = g_mime_object_get_content_type(object);
  return contentType ? Take(g_mime_content_type_get_mime_type(contentType)) : std::string();
}

namespace {

bool IsPlainType(GMimeObject* part) {
  return IsType(part, "text", "plain") || IsType(part, "text", "enriched") || IsType(part, "text", "richtext");
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

}  // namespace

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
Ref<GMimeObject> Detach(GMimeMessage* message, GMimeObject* object, GMimeMultipart* parent, GMimeObject* replacement) {
  if (parent) {
    const int index = g_mime_multipart_index_of(parent, object);
    return Ref<GMimeObject>(g_mime_multipart_replace(parent, index, replacement));
  }
  g_object_ref(object);
  g_mime_message_set_mime_part(message, replacement);
  return Ref<GMimeObject>(object);
}

// The file name as both the disposition's "filename" and the type's "name".
// Left alone, GMime encodes a non-ASCII name in the smallest charset that
// holds it (ISO-8859-5 for Cyrillic); UTF-8 is the one every reader knows.
void SetFileName(GMimeObject* part, const std::string& filename) {
  g_mime_object_set_content_disposition_parameter(part, "filename", filename.c_str());
  g_mime_object_set_content_type_parameter(part, "name", filename.c_str());
  GMimeContentDisposition* disposition = g_mime_object_get_content_disposition(part);
  GMimeParam* fromDisposition =
      disposition ? g_mime_param_list_get_parameter(g_mime_content_disposition_get_parameters(disposition), "filename")
                  : nullptr;
  GMimeParam* fromType =
      g_mime_param_list_get_parameter(g_mime_content_type_get_parameters(g_mime_object_get_content_type(part)), "name");
  for (GMimeParam* param : {fromDisposition, fromType})
    if (param) g_mime_param_set_charset(param, "UTF-8");
}

}  // namespace ck_detail

}  // namespace marrow
