#include "mail/eml_builder.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <thread>
#include <vector>

#include "content/item_markup.h"
#include "content/property_values.h"
#include "mail/ck_email.h"
#include "mail/ck_string.h"
#include "mail/file_bytes.h"
#include "store/ascii_case.h"
#include "store/temp_file.h"
#include "text/charset_convert.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOctetStream = "application/octet-stream";

std::string WithSlash(std::string folder) {
  if (!folder.empty() && folder.back() != '/') folder += '/';
  return folder;
}

void EraseAll(std::string& text, std::string_view what) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) text.erase(at, what.size());
}

void ReplaceAll(std::string& text, std::string_view what, std::string_view with) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
    text.replace(at, what.size(), with);
}

// The fields of a header block (the text up to its first blank line), each
// with its continuation lines and line ends. Lines that are neither a field
// nor a continuation (a gateway's banner above the fields, say) are dropped:
// the parser gives up on a header that starts with one.
std::vector<std::string> HeaderFields(std::string_view text) {
  std::vector<std::string> fields;
  bool inField = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end == std::string_view::npos ? text.size() : end + 1);
    text.remove_prefix(line.size());
    std::string_view bare = line;
    while (!bare.empty() && (bare.back() == '\n' || bare.back() == '\r')) bare.remove_suffix(1);
    if (bare.empty()) {
      if (!fields.empty()) break;  // the blank line that ends the header
      continue;
    }
    if (bare.front() == ' ' || bare.front() == '\t') {
      if (inField) fields.back() += std::string(bare) + "\r\n";
      continue;
    }
    const std::size_t colon = bare.find(':');
    const std::string_view name = bare.substr(0, colon);
    inField = colon != std::string_view::npos && colon > 0 &&
              std::all_of(name.begin(), name.end(), [](char c) { return c > 32 && c < 127; });
    if (inField) fields.push_back(std::string(bare) + "\r\n");
  }
  return fields;
}

// A field's name in lower case.
std::string FieldName(const std::string& field) {
  return AsciiLower(field.substr(0, field.find(':')));
}

// A body file's bytes in `charset` as UTF-8 text, up to a stored terminator.
std::string BodyText(const std::string& bytes, const std::string& charset) {
  CkString text(bytes);
  text.ConvertCharset(charset, "utf-8");
  std::string out = text.GetString();
  out.erase(std::min(out.find('\0'), out.size()));
  return out;
}

// The charset of a plain body file.
std::string PlainCharset(bool isUnicode, unsigned codePage) {
  return isUnicode ? "utf-16" : CodePageCharset(codePage);
}

// The charset an HTML body file is read in. HTML is kept as the sender's
// client wrote it, most often UTF-8 already; only bytes that are not UTF-8
// are taken in the charset the item names.
std::string HtmlCharset(const std::string& bytes, const EmlParts& parts) {
  std::string unused;
  // A 7-bit stateful charset (ISO-2022) passes as UTF-8 but for its escapes.
  if (bytes.find('\x1B') == std::string::npos && ConvertCharsetExact(bytes, "utf-8", "utf-8", &unused)) {
    return "utf-8";
  }
  if (parts.htmlCodePage != 0 && parts.htmlCodePage != 65001 && !parts.bodyIsUnicode) {
    return CodePageCharset(parts.htmlCodePage);
  }
  return PlainCharset(parts.bodyIsUnicode, parts.codePage);
}

bool IsMessageType(const std::string& type) {
  return AsciiLower(type.substr(0, type.find(';'))) == "message/rfc822";
}

// Local wall-clock seconds of a FILETIME; false for 0 or a time the
// system cannot place.
bool FiletimeToLocalWall(std::uint64_t filetime, std::int64_t* wall) {
  if (filetime == 0) return false;
  const std::time_t utc = static_cast<std::time_t>(FiletimeToUnixSeconds(filetime));
  std::tm local{};
  if (localtime_r(&utc, &local) == nullptr) return false;
  *wall = static_cast<std::int64_t>(timegm(&local));
  return true;
}

// Reads an unsigned decimal of 1 to `maxDigits` digits at `at`.
bool ReadNumber(std::string_view text, std::size_t& at, int maxDigits, int* value) {
  int digits = 0;
  *value = 0;
  while (at < text.size() && digits < maxDigits && std::isdigit(static_cast<unsigned char>(text[at]))) {
    *value = *value * 10 + (text[at++] - '0');
    ++digits;
  }
  return digits > 0;
}

bool Expect(std::string_view text, std::size_t& at, char c) {
  if (at >= text.size() || text[at] != c) return false;
  ++at;
  return true;
}

// "MM/DD/YYYY HH:MM", anything after it ignored (the AM/PM mark repeats
// what the 24-hour hour says).
bool ParseDateFields(std::string_view text, std::int64_t* localSeconds) {
  std::size_t at = 0;
  int month = 0, day = 0, year = 0, hour = 0, minute = 0;
  if (!ReadNumber(text, at, 2, &month) || !Expect(text, at, '/') || !ReadNumber(text, at, 2, &day) ||
      !Expect(text, at, '/') || !ReadNumber(text, at, 4, &year) || !Expect(text, at, ' ') ||
      !ReadNumber(text, at, 2, &hour) || !Expect(text, at, ':') || !ReadNumber(text, at, 2, &minute))
    return false;
  const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                                         std::chrono::day{static_cast<unsigned>(day)}};
  if (year < 1900 || !date.ok() || hour > 23 || minute > 59) return false;
  const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  *localSeconds = days * 86400 + hour * 3600 + minute * 60;
  return true;
}

// Attaches the files in list order. `index` counts the attachment parts as
// they are meant to be; attached messages are parts of their own kind and
// take none. A file that cannot be added after one retry is skipped but
// keeps its index, so every attachment after it looks for its headers one
// part further on than it is, finds none there, and keeps only what
// AddFileAttachment gave it: the name of its file and the type. Stored items
// have always come out that way and this stays so.
void AddAttachments(CkEmail& email, const AttachmentFiles& files) {
  int index = email.NumAttachments();
  for (const AttachmentFile& file : files) {
    const std::string type = file.mimeTag.empty() ? kOctetStream : file.mimeTag;
    if (!email.AddFileAttachment(file.path, type)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      email.AddFileAttachment(file.path, type);
    }
    if (IsMessageType(type)) continue;
    const int at = index++;
    const std::string& name = file.name;
    email.AddAttachmentHeader(at, "content-type", type);
    email.AddAttachmentHeader(at, "content-iD", file.contentId.empty() ? name : file.contentId);
    email.AddAttachmentHeader(at, "Content-Disposition", "attachment; filename=" + name);
  }
}

std::string HtmlEscaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else
      out += c;
  }
  return out;
}

}  // namespace

bool ParseDateText(const std::string& text, std::int64_t* localSeconds) {
  // The weekday in front is dropped; a text without one is read whole.
  const std::size_t blank = text.find(' ');
  if (blank != std::string::npos && ParseDateFields(std::string_view(text).substr(blank + 1), localSeconds))
    return true;
  return ParseDateFields(text, localSeconds);
}

bool RepairMime(const std::string& path, const std::string& text, bool isPlain, const std::string& html) {
  std::string stored;
  if (!ReadWholeFile(path, &stored)) return false;
  // The stored type describes a body that is not there: its multipart
  // boundary names parts that are gone, and a loaded multipart without parts
  // would stay one whatever body is set. The type of the body set below
  // stands in its place.
  std::vector<std::string> fields = HeaderFields(stored);
  if (fields.empty()) return false;
  std::erase_if(fields, [](const std::string& field) {
    const std::string name = FieldName(field);
    return name == "content-type" || name == "content-transfer-encoding";
  });
  std::string header;
  for (const std::string& field : fields) header += field;
  header += isPlain ? "Content-Type: text/plain\r\n\r\n" : "Content-Type: text/html\r\n\r\n";
  CkEmail email;
  if (!email.SetFromMimeText(header)) return false;

  // Verdicts of the recipient's spam filters say nothing about the copy.
  std::vector<std::string> verdicts;
  const int count = email.NumHeaderFields();
  for (int i = 0; i < count; ++i) {
    const std::string name = email.GetHeaderFieldName(i);
    if (AsciiLower(name).find("antispam") != std::string::npos) verdicts.push_back(name);
  }
  for (const std::string& name : verdicts) email.RemoveHeaderField(name);
  email.RemoveHeaderField("Authentication-Results");

  if (!isPlain) {
    email.SetHtmlBody(html.empty() ? text : html);
  } else {
    std::string plain = text;
    EraseAll(plain, "<x-flowed>");
    EraseAll(plain, "</x-flowed>");
    email.put_Charset("utf-8");
    email.SetTextBody(plain, "text/plain");
    if (!html.empty()) email.SetHtmlBody(html);
  }
  // SaveEml replaces the file only once the new one is whole.
  return email.SaveEml(path);
}

std::string BuildEml(const std::string& itemFolder, const EmlParts& parts, const AttachmentFiles& attachments) {
  const std::string folder = WithSlash(itemFolder);
  const std::string result = folder + NewGuidText() + ".mht";

  CkEmail email;
  if (!parts.transportHeaders.empty()) {
    // Our strings are UTF-8 already, so non-ASCII header text goes in as is.
    const std::string headerPath = folder + NewGuidText() + ".eml";
    if (WriteWholeFile(headerPath, parts.transportHeaders)) {
      // RepairMime has put a body type of our own in place of the stored
      // one, so there is no stored Content-Type left to remove.
      if (RepairMime(headerPath, "", parts.isPlain, "") && email.LoadEml(headerPath)) email.DropAttachments();
      std::error_code ec;
      fs::remove(headerPath, ec);
    }
  }

  // A sender the headers give as a distinguished name, or not at all, is
  // taken from the item.
  const std::string from = email.From();
  if (from.empty() || from.find('/') != std::string::npos) email.put_From(parts.fromText);
  if (email.Subject().empty() && !parts.subject.empty()) email.put_Subject(parts.subject);

  std::string body;
  if (!parts.bodyPath.empty()) ReadWholeFile(parts.bodyPath, &body);
  const std::string charset =
      parts.isPlain ? PlainCharset(parts.bodyIsUnicode, parts.codePage) : HtmlCharset(body, parts);
  // A plain UTF-16 body is left to the body pass below.
  if (!parts.isPlain) {
    email.SetHtmlBody(BodyText(body, charset));
  } else if (!parts.bodyIsUnicode) {
    email.AddPlainTextAlternativeBody(BodyText(body, charset));
  }
  AddAttachments(email, attachments);
  email.SaveEml(result);

  // The body pass: subject and body once more through a loaded message, so
  // non-ASCII text of both comes out in one charset.
  CkEmail bodyPass;
  if (bodyPass.LoadEml(result)) {
    bodyPass.put_Charset("utf-8");
    if (!parts.subject.empty()) bodyPass.put_Subject(parts.subject);
    if (parts.isPlain) {
      bodyPass.SetTextBody(BodyText(body, charset), "text/plain");
    } else {
      bodyPass.SetMbHtmlBody(charset, body);
    }
    bodyPass.SaveEml(result);
  }

  std::int64_t localSeconds = 0;
  if (parts.fullHeaders) {
    CkEmail full;
    if (full.LoadEml(result)) {
      if (!parts.bccText.empty()) full.AddMultipleBcc(parts.bccText);
      if (!parts.ccText.empty()) full.AddMultipleCC(parts.ccText);
      if (!parts.toText.empty()) full.AddMultipleTo(parts.toText);
      if (FiletimeToLocalWall(parts.deliveryTime, &localSeconds)) full.put_LocalDate(localSeconds);
      full.SaveEml(result);
    }
  } else if (!parts.dateText.empty() && ParseDateText(parts.dateText, &localSeconds)) {
    CkEmail dated;
    if (dated.LoadEml(result)) {
      dated.put_LocalDate(localSeconds);
      dated.SaveEml(result);
    }
  }
  return result;
}

std::string BuildItemEml(const std::string& itemFolder, const ItemEmlParts& parts, const AttachmentFiles& attachments) {
  const std::string folder = WithSlash(itemFolder);
  const std::string rows = ReadMarkup(parts.itemText);

  CkEmail email;
  email.put_Subject(parts.subject.empty() ? parts.typeText : parts.subject);
  std::int64_t localSeconds = 0;
  if (FiletimeToLocalWall(parts.deliveryTime, &localSeconds)) email.put_LocalDate(localSeconds);

  std::string html;
  // A body of blanks and line ends alone (contacts often keep one) would
  // show an empty page; the rows stand in for it.
  if (parts.plainBody.find_first_not_of(" \t\r\n") != std::string::npos) {
    std::string body = HtmlEscaped(LineEndsToLf(parts.plainBody));
    ReplaceAll(body, "\n", "<br>\r\n");
    html = "<html><body><p>" + body + "</p></body></html>";
  } else {
    std::string marked = HtmlEscaped(rows);
    ReplaceAll(marked, "&lt;ITEM&gt;", "<p>");
    ReplaceAll(marked, "&lt;/ITEM&gt;", "</p>");
    html = "<html><body>" + marked + "</body></html>";
  }
  email.SetHtmlBody(html);

  std::string extra = rows;
  EraseAll(extra, "<ITEM>");
  EraseAll(extra, "</ITEM>");
  const std::string extraPath = folder + "ExtraInformation.txt";
  AttachmentFiles files;
  if (WriteWholeFile(extraPath, extra))
    files.push_back({extraPath, "ExtraInformation.txt", "", "text/plain; charset=utf-8"});
  files.insert(files.end(), attachments.begin(), attachments.end());
  AddAttachments(email, files);
  if (!parts.fromText.empty()) email.put_From(parts.fromText);
  if (!parts.toText.empty()) email.AddMultipleTo(parts.toText);

  // Written once, read back and written under the target name: what is
  // kept is a file the loader has already read whole.
  const std::string partPath = folder + "temp12as.part";
  std::error_code ec;
  fs::remove(partPath, ec);
  if (!email.SaveEml(partPath)) return {};
  CkEmail back;
  const std::string target = folder + NewGuidText() + ".eml";
  const bool saved = back.LoadEml(partPath) && back.SaveEml(target);
  fs::remove(partPath, ec);
  return saved ? target : std::string();
}

}  // namespace marrow
