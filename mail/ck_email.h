// One mail message: read from and written to MIME, built up field by field.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace marrow {

// All text in and out is UTF-8. Written MIME uses CRLF line ends; header
// fields are folded and non-ASCII text goes out as RFC 2047 encoded words
// (UTF-8), file names as RFC 2231 parameters, and bodies as 7bit,
// quoted-printable or base64, whichever suits the bytes.
//
// What counts as what, walking the tree in order (attached messages are not
// entered): the first text/plain and the first text/html leaf that is neither
// marked "attachment" nor has a file name are the bodies; the other parts of
// a multipart/related are its resources; message/rfc822 parts are attached
// messages; every other leaf is an attachment. A related part marked
// "attachment" is an attachment all the same. So the text part of a
// multipart/report is its plain body and the delivery status an attachment.
//
// A message built here has the shape multipart/mixed (only when there are
// attachments) holding multipart/alternative (text/plain then text/html, only
// when both exist) or the single body part, then the attachments. A loaded
// message keeps its own shape and its header fields, in their order and
// spelling, through to SaveEml except where a setter replaces one.
class CkEmail {
 public:
  CkEmail();  // an empty message
  ~CkEmail();
  // A moved-from message may only be destroyed or assigned to.
  CkEmail(CkEmail&&) noexcept;
  CkEmail& operator=(CkEmail&&) noexcept;
  CkEmail(const CkEmail&) = delete;
  CkEmail& operator=(const CkEmail&) = delete;

  // Replace the whole message. False, with the message unchanged, when the
  // file cannot be read or the text is empty.
  bool LoadEml(const std::string& path);
  bool SetFromMimeText(std::string_view text);
  // Written to a temporary name and renamed over `path` when complete.
  bool SaveEml(const std::string& path);
  std::string GetMime() const;  // exactly the bytes SaveEml writes

  // "Name <addr>", "addr" or "Name"; "" when there is no sender.
  std::string From() const;
  std::string FromName() const;
  std::string FromAddress() const;
  // Takes "Name <addr>", "Name<addr>", "addr" or a bare name. A bare name is
  // written as an empty group ("Name:;"), the one valid form of a sender
  // without an address.
  void put_From(const std::string& text);

  std::string Subject() const;  // decoded
  void put_Subject(const std::string& text);

  // The Date field from UTC, or from local wall-clock seconds (the local
  // time's fields counted as if they were UTC), written with the local offset.
  void put_EmailDate(std::int64_t utcSeconds);
  void put_LocalDate(std::int64_t localSeconds);
  // False when the field is missing or cannot be read as a date.
  bool get_EmailDate(std::int64_t* utcSeconds) const;

  // The charset for bodies set from now on ("" for UTF-8). Text that the
  // charset cannot hold whole is stored as UTF-8 instead. Header fields are
  // always encoded as UTF-8. False for a charset iconv does not know.
  bool put_Charset(const std::string& charset);
  const std::string& Charset() const;

  // Recipients from ";"-separated "Name<addr>", "Name <addr>" or "addr"
  // entries, appended to the field. False for a list with no entries.
  bool AddMultipleTo(const std::string& list);
  bool AddMultipleCC(const std::string& list);
  bool AddMultipleBcc(const std::string& list);
  // Groups are flattened: each member is one recipient, an empty group one
  // name-only recipient. GetX gives "Name <addr>" (or "addr", or "Name"),
  // GetXAddr the bare address; both "" out of range.
  int NumTo() const;
  int NumCC() const;
  int NumBcc() const;
  std::string GetTo(int index) const;
  std::string GetCC(int index) const;
  std::string GetBcc(int index) const;
  std::string GetToAddr(int index) const;
  std::string GetCCAddr(int index) const;
  std::string GetBccAddr(int index) const;

  // Attaches the file as base64 with its file name; an empty content type is
  // taken as application/octet-stream.
  bool AddFileAttachment(const std::string& path, const std::string& contentType);
  // Sets a field on attachment `index`, replacing any of that name; the name
  // is written exactly as given.
  bool AddAttachmentHeader(int index, const std::string& name, const std::string& value);
  void DropAttachments();  // attached messages stay
  int NumAttachments() const;
  // "" (with the index error) out of range, "" for an attachment without a name.
  std::string GetAttachmentFilename(int index) const;
  std::string GetAttachmentContentType(int index) const;
  // The decoded bytes; false out of range.
  bool GetAttachmentData(int index, std::string* bytes) const;

  int NumAttachedMessages() const;
  // A copy of the attached message; null out of range.
  std::unique_ptr<CkEmail> GetAttachedMessage(int index) const;

  // The top-level header in stored order, Content-* fields included. Names
  // are spelled as stored; values are unfolded, trimmed and RFC 2047 decoded.
  int NumHeaderFields() const;
  std::string GetHeaderFieldName(int index) const;
  std::string GetHeaderFieldValue(int index) const;
  // The first field of that name (any case), decoded; "" when absent.
  std::string GetHeaderField(const std::string& name) const;
  // Appends a field, encoding non-ASCII text; the name is written as given.
  void AddHeaderField(const std::string& name, const std::string& value);
  // Removes every top-level field of that name, in any case.
  void RemoveHeaderField(const std::string& name);

  bool HasPlainTextBody() const;
  bool HasHtmlBody() const;
  // The decoded bodies as UTF-8 with LF line ends; "" when absent.
  std::string GetPlainTextBody() const;
  std::string GetHtmlBody() const;

  // Bodies are stored with CRLF line ends in the body charset. A body that is
  // the message's only part gains a final line end when written if it has
  // none. Setting one
  // kind replaces a body of that kind in place, or adds it beside a body of
  // the other kind in a multipart/alternative (made when needed). The
  // Add...AlternativeBody calls do the same; they are kept for callers that
  // think of the second body as the alternative.
  // SetTextBody with "text/html" sets the HTML body; any other type sets the
  // plain body with that content type ("" meaning text/plain).
  bool SetTextBody(const std::string& text, const std::string& contentType);
  bool SetHtmlBody(const std::string& html);
  // The HTML body from bytes in a named charset.
  bool SetMbHtmlBody(const std::string& charset, std::string_view bytes);
  bool AddPlainTextAlternativeBody(const std::string& text);
  bool AddHtmlAlternativeBody(const std::string& html);

  const std::string& LastErrorText() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace marrow
