#include "mail/ck_email.h"

#include "mail/ck_email_private.h"
#include "mail/file_bytes.h"
#include "text/charset_convert.h"

namespace marrow {

using namespace ck_detail;

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

bool CkEmail::put_Charset(const std::string& charset) {
  if (!charset.empty() && !CharsetKnown(charset)) return impl_->Fail("Unknown charset: " + charset);
  impl_->charset = charset;
  impl_->lastError.clear();
  return true;
}

const std::string& CkEmail::Charset() const {
  return impl_->charset;
}

}  // namespace marrow
