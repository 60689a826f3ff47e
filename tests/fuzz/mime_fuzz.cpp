// Any bytes as a mail message: parsed, every reader and a few writers run
// over it, the written text parsed again; and as an entity whose boundary is
// repaired. Every call must return, whatever the input.
#include <string>
#include <string_view>

#include "mail/ck_email.h"
#include "mail/ck_mime.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marrow;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CkMime entity;
  if (entity.LoadMime(text)) {
    entity.GetBoundary();
    fuzz::Check(entity.SetBoundary("fuzz-boundary"), "a loaded entity refused a boundary");
    CkMime again;
    again.LoadMime(entity.GetMime());
  }
  CkEmail mail;
  if (!mail.SetFromMimeText(text)) return 0;
  std::int64_t date = 0;
  mail.get_EmailDate(&date);
  mail.From();
  mail.Subject();
  for (int i = 0; i <= mail.NumTo(); ++i) mail.GetTo(i);
  for (int i = 0; i < mail.NumHeaderFields(); ++i) mail.GetHeaderFieldValue(i);
  mail.GetPlainTextBody();
  mail.GetHtmlBody();
  std::string bytes;
  for (int i = 0; i < mail.NumAttachments(); ++i) {
    mail.GetAttachmentFilename(i);
    mail.GetAttachmentData(i, &bytes);
  }
  for (int i = 0; i < mail.NumAttachedMessages(); ++i) mail.GetAttachedMessage(i);
  CkEmail again;
  again.SetFromMimeText(mail.GetMime());
  mail.SetHtmlBody("<p>x</p>");
  mail.DropAttachments();
  mail.GetMime();
  return 0;
}
