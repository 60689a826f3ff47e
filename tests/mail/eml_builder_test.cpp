// EML files of stored items: the repair of stored headers, the passes of
// BuildEml, the view of items that are not mail, and ConvertItem over real
// sample stores. What we write is read back with our own loader and with
// Python's email package, which knows nothing of how it was made.
#include <algorithm>
#include <cctype>

#include <gtest/gtest.h>

#include "content/item_render.h"
#include "content/property_values.h"
#include "mail/ck_email.h"
#include "mail/eml_builder.h"
#include "mail/item_converter.h"
#include "tests/support/heap_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using test::Bag;
using test::Buf;
using test::Hex;

constexpr std::uint16_t kUnicode = 0x001F, kBinary = 0x0102, kTime = 0x0040;
constexpr std::uint64_t kJan2024 = 133500000000000000ull;  // Wed 2024-01-17 21:20 UTC

Buf Bytes(std::string_view text) {
  return Buf(text.begin(), text.end());
}

std::size_t Count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// "plain|html" bodies of a message, "-" for one it lacks.
std::string Bodies(const CkEmail& email) {
  return (email.HasPlainTextBody() ? email.GetPlainTextBody() : "-") + "|" +
         (email.HasHtmlBody() ? email.GetHtmlBody() : "-");
}

// Python's reading of one file (tests/mail/eml_dump.py), its lines joined.
std::string PythonView(const std::string& path) {
  bool available = false;
  std::string out;
  for (const std::string& line : test::PythonDump(path, &available)) out += line + "\n";
  return available ? out : "python3 not found";
}

class EmlBuilder : public test::ScratchDir {
 protected:
  void SetUp() override {
    ScratchDir::SetUp();
    fs::create_directories(Dir() / "item");
  }
  std::string Item() const { return Path("item"); }
};

// Stored transport headers with a route, filter verdicts, a sender given as
// a distinguished name and a multipart type of their own.
const std::string kStoredHeaders = test::ReadFile(test::MailFixture("stored_headers.eml"));

// Stored headers as BuildEml repairs them: no body text of their own, a body
// type of ours in place of the stored one.
TEST_F(EmlBuilder, RepairKeepsTheRouteAndDropsFilterVerdictsAndTheStoredType) {
  for (const bool isPlain : {true, false}) {
    const std::string path = Write("headers.eml", kStoredHeaders);
    ASSERT_TRUE(RepairMime(path, "", isPlain, ""));
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(path));
    EXPECT_EQ(Bodies(email), isPlain ? "|-" : "-|");
    EXPECT_EQ(email.GetHeaderField("To"), "Bob <bob@example.org>");
    std::string mime = test::ReadFile(path);
    for (char& ch : mime) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    EXPECT_EQ(Count(mime, "received: from "), 2u);
    for (const char* gone : {"antispam", "authentication-results", "nextpart"})
      EXPECT_EQ(mime.find(gone), std::string::npos) << gone;
  }

  // Nothing that reads as a header: refused, and the file left alone.
  const std::string junk = Write("junk.eml", "no header here\r\n\r\nbody\r\n");
  EXPECT_FALSE(RepairMime(junk, "x", true, ""));
  EXPECT_EQ(test::ReadFile(junk), "no header here\r\n\r\nbody\r\n");
  EXPECT_FALSE(RepairMime(Path("missing.eml"), "x", true, ""));
}

TEST_F(EmlBuilder, SenderFromTheItemWhenTheHeadersGiveNoneOrADistinguishedName) {
  const std::pair<const char*, const char*> cases[] = {
      {kStoredHeaders.c_str(), "Ann Lee <ann@example.org>"},
      {"From: Carl <carl@example.org>\r\nSubject: s\r\n", "Carl <carl@example.org>"},
      {"Subject: no sender\r\n", "Ann Lee <ann@example.org>"},
  };
  for (const auto& [headers, want] : cases) {
    EmlParts parts;
    parts.transportHeaders = headers;
    parts.fromText = "Ann Lee<ann@example.org>";
    parts.subject = "s";
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(BuildEml(Item(), parts, {})));
    EXPECT_EQ(email.From(), want) << headers;
  }
}

TEST_F(EmlBuilder, AttachmentsCarryTheirHeadersAndMessagesGoAsMessages) {
  AttachmentFiles files;
  files.push_back({Write("a file.txt", "first"), "a file.txt", "", "text/plain"});
  files.push_back({Write("x.bin", "second"), "report 2024.pdf", "cid-7@example.org", "application/pdf"});
  files.push_back(
      {Write("inner.eml", "Subject: inner\r\nFrom: a@b.org\r\n\r\nhi\r\n"), "inner.eml", "", "message/rfc822"});
  files.push_back({Write("plain", "third"), "no type", "", ""});
  EmlParts parts;
  parts.subject = "with files";
  parts.bodyPath = Write("body.txt", "body");
  const std::string path = BuildEml(Item(), parts, files);
  const std::string mime = test::ReadFile(path);
  EXPECT_EQ(Count(mime, "content-iD: "), 3u) << "spelled so, on each attachment part";
  EXPECT_NE(mime.find("content-iD: a file.txt\r\n"), std::string::npos);
  EXPECT_NE(mime.find("content-iD: cid-7@example.org\r\n"), std::string::npos);

  CkEmail email;
  ASSERT_TRUE(email.LoadEml(path));
  EXPECT_EQ(email.NumAttachments(), 3);
  ASSERT_EQ(email.NumAttachedMessages(), 1);
  EXPECT_EQ(email.GetAttachedMessage(0)->Subject(), "inner");
  // Names with blanks read back whole, not cut at the first blank.
  const std::string view = PythonView(path);
  for (const std::string& part :
       {"file\ttext/plain\t" + Hex("a file.txt"), "file\tapplication/pdf\t" + Hex("report 2024.pdf"),
        "file\tapplication/octet-stream\t" + Hex("no type"), "text\ttext/plain\t" + Hex("body")})
    EXPECT_NE(view.find("\n" + part + "\t"), std::string::npos) << part << "\n" << view;

  // A file that cannot be added still takes its index: the part after the gap
  // looks for its headers one index too far and keeps the name of its file.
  AttachmentFiles gap;
  gap.push_back({Write("one.txt", "1"), "one.txt", "", "text/plain"});
  gap.push_back({Path("gone.bin"), "gone.bin", "", "image/png"});
  gap.push_back({Write("3.tmp", "3"), "three.txt", "cid-3", "text/plain"});
  const std::string gapped = BuildEml(Item(), {}, gap);
  ASSERT_TRUE(email.LoadEml(gapped));
  ASSERT_EQ(email.NumAttachments(), 2);
  EXPECT_EQ(email.GetAttachmentFilename(0), "one.txt");
  EXPECT_EQ(email.GetAttachmentFilename(1), "3.tmp");
  std::string bytes;
  ASSERT_TRUE(email.GetAttachmentData(1, &bytes));
  EXPECT_EQ(bytes, "3");
  EXPECT_EQ(Count(test::ReadFile(gapped), "content-iD: "), 1u);
}

TEST_F(EmlBuilder, DateFromTheDateTextOrTheDeliveryTimeOrNone) {
  std::int64_t local = 0;
  ASSERT_TRUE(ParseDateText("Wed 01/17/2024 21:20 PM", &local));
  EXPECT_EQ(local, 1705526400);  // 2024-01-17 21:20 as wall-clock seconds
  ASSERT_TRUE(ParseDateText("01/17/2024 21:20 PM", &local)) << "no weekday: read whole";
  EXPECT_EQ(local, 1705526400);
  for (const char* bad : {"", "Wed", "Wed 13/01/2024 10:00 AM", "Wed 02/30/2024 10:00 AM", "Mon 01/01/1899 10:00 AM",
                          "Wed 01/17/2024 24:00 PM", "Wed 1/17/2024"})
    EXPECT_FALSE(ParseDateText(bad, &local)) << bad;

  const std::int64_t utc = local;  // the content tests run in UTC
  EmlParts parts;
  parts.subject = "dated";
  parts.dateText = "Wed 01/17/2024 21:20 PM";
  CkEmail email;
  std::int64_t seconds = 0;
  ASSERT_TRUE(email.LoadEml(BuildEml(Item(), parts, {})));
  ASSERT_TRUE(email.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, utc);

  parts.dateText.clear();
  ASSERT_TRUE(email.LoadEml(BuildEml(Item(), parts, {})));
  EXPECT_EQ(email.GetHeaderField("Date"), "");

  // In full, the recipients and the exact delivery time are written too.
  parts.fullHeaders = true;
  parts.deliveryTime = static_cast<std::uint64_t>(utc + 11644473600LL + 42) * 10000000;
  parts.toText = "Ann<ann@example.org>;bob@example.org";
  parts.ccText = "Cy<cy@example.org>";
  ASSERT_TRUE(email.LoadEml(BuildEml(Item(), parts, {})));
  ASSERT_TRUE(email.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, utc + 42);
  EXPECT_EQ(email.NumTo(), 2);
  EXPECT_EQ(email.GetCCAddr(0), "cy@example.org");
  EXPECT_EQ(email.NumBcc(), 0);
}

TEST_F(EmlBuilder, NonAsciiSubjectAndBodiesComeOutInOneCharset) {
  struct Case {
    const char* name;
    bool isPlain, bodyIsUnicode;
    std::string body;  // the body file's bytes
    const char* text;  // what a reader finds in the body
  };
  const std::string cjk = "日本語のテキスト、中文。";
  const Buf wide = Utf8ToUtf16(cjk);
  const Case cases[] = {
      {"utf-16 plain", true, true, std::string(wide.begin(), wide.end()) + std::string(2, '\0'),
       "日本語のテキスト、中文。"},
      {"ansi plain", true, false, "caf\xE9 cr\xE8me", "café crème"},
      {"utf-8 html", false, false, "<p>" + cjk + "</p>", "<p>日本語のテキスト、中文。</p>"},
      {"ansi html", false, false, "<p>caf\xE9</p>", "<p>café</p>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EmlParts parts;
    // The stored subject is encoded in another charset; the item's wins.
    parts.transportHeaders = "From: a@example.org\r\nSubject: =?koi8-r?B?8NLJ18XU?=\r\n";
    parts.subject = "Привет, мир";
    parts.isPlain = c.isPlain;
    parts.bodyIsUnicode = c.bodyIsUnicode;
    parts.bodyPath = Write("body", c.body);
    const std::string path = BuildEml(Item(), parts, {});
    const std::string mime = test::ReadFile(path);
    EXPECT_EQ(mime.find("koi8"), std::string::npos);
    EXPECT_NE(mime.find("charset=utf-8"), std::string::npos);
    const std::string view = PythonView(path);
    EXPECT_EQ(view.rfind("subject\t" + Hex("Привет, мир") + "\n", 0), 0u) << view;
    EXPECT_NE(view.find(std::string("\ntext\t") + (c.isPlain ? "text/plain\t" : "text/html\t") + Hex(c.text)),
              std::string::npos)
        << view;
    EXPECT_EQ(Count(view, "\ntext\t") + Count(view, "\nfile\t"), 1u) << view;
  }
}

TEST_F(EmlBuilder, ItemsThatAreNotMailShowTheirRowsOrTheirBody) {
  AttachmentFiles files;
  files.push_back({Write("agenda.txt", "agenda"), "agenda.txt", "", "text/plain"});
  ItemEmlParts parts;
  parts.itemText = "<ITEM>Location : Hall <A></ITEM>\r\n<ITEM>END TIME : 133500000000000000</ITEM>\r\n";
  parts.typeText = "CALENDER";
  parts.deliveryTime = kJan2024;
  const std::string path = BuildItemEml(Item(), parts, files);
  ASSERT_FALSE(path.empty());
  EXPECT_FALSE(fs::exists(Dir() / "item" / "temp12as.part"));

  CkEmail email;
  ASSERT_TRUE(email.LoadEml(path));
  EXPECT_EQ(email.Subject(), "CALENDER");
  std::int64_t seconds = 0;
  ASSERT_TRUE(email.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, kJan2024 / 10000000 - 11644473600LL);
  const std::string html = email.GetHtmlBody();
  EXPECT_EQ(html.rfind("<html><body><p>Location : Hall &lt;A&gt;</p>", 0), 0u) << html;
  EXPECT_EQ(html.find("133500000000000000"), std::string::npos) << "times are made readable";
  ASSERT_EQ(email.NumAttachments(), 2);
  EXPECT_EQ(email.GetAttachmentFilename(0), "ExtraInformation.txt");
  EXPECT_EQ(email.GetAttachmentFilename(1), "agenda.txt");
  std::string extra;
  ASSERT_TRUE(email.GetAttachmentData(0, &extra));
  EXPECT_EQ(extra.rfind("Location : Hall <A>\r\nEND TIME : ", 0), 0u) << extra;
  EXPECT_EQ(extra.find("ITEM>"), std::string::npos);

  parts.plainBody = "Bring <notes>\r\nand coffee";
  ASSERT_TRUE(email.LoadEml(BuildItemEml(Item(), parts, {})));
  EXPECT_EQ(email.GetHtmlBody(), "<html><body><p>Bring &lt;notes&gt;<br>\nand coffee</p></body></html>");
  EXPECT_EQ(email.NumAttachments(), 1) << "the rows still go along";
}

TEST_F(EmlBuilder, ConvertPicksTheBodyRecipientsAndSenderOfAnItem) {
  StoreReader store;  // nothing open: the items have no subnodes
  ItemReader items(store, Item());
  const std::string headers =
      "From: Ann Lee <ann@example.org>\r\nTo: bob@example.org, cy@example.org\r\nSubject: s\r\n"
      "Cc: d@e.org\r\n";
  const std::pair<std::vector<std::tuple<std::uint16_t, std::uint16_t, Buf>>, const char*> cases[] = {
      {{}, "\t\t\t\t   |-"},
      {{{0x1000, kUnicode, Utf8ToUtf16("plain text")}}, "plain text|-"},
      {{{0x1000, kUnicode, Utf8ToUtf16("plain")}, {0x1013, kBinary, Bytes("<p>x</p>")}}, "-|<p>x</p>"},
  };
  for (const auto& [body, bodies] : cases) {
    SCOPED_TRACE(bodies);
    PropertyBag bag = Bag({{0x001A, kUnicode, Utf8ToUtf16("IPM.Note")},
                           {0x0037, kUnicode, Utf8ToUtf16("Отчёт")},
                           {0x0C1A, kUnicode, Utf8ToUtf16("Ann")},
                           {0x0C1F, kUnicode, Utf8ToUtf16("/O=EXAMPLE/CN=ANN")},
                           {0x0E04, kUnicode, Utf8ToUtf16("Bob")},
                           {0x0E03, kUnicode, Utf8ToUtf16("A Long Display Name")},
                           {0x0E06, kTime, test::LE(kJan2024, 8)},
                           {0x007D, kUnicode, Utf8ToUtf16(headers)}});
    for (const auto& [id, type, bytes] : body)
      bag.Append(PropertyValue::InMemory(id, type, bytes.data(), bytes.size()));
    ItemResult result;
    const std::string path = ConvertItem(items, bag, {}, {}, result);
    EXPECT_EQ(result.fromText, "Ann Lee <ann@example.org>") << "a DN asks the headers";
    EXPECT_EQ(result.toText, "bob@example.org;cy@example.org") << "longer than 0x0E04";
    EXPECT_EQ(result.ccText, "A Long Display Name") << "longer than the headers' Cc";
    EXPECT_EQ(result.typeText, "EMAIL");
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(path));
    EXPECT_EQ(email.Subject(), "Отчёт");
    EXPECT_EQ(Bodies(email), bodies);
  }

  // A refused item is not converted and shows no sender, subject or time.
  PropertyBag bag = Bag({{0x0037, kUnicode, Utf8ToUtf16("secret")}, {0x0E06, kTime, test::LE(1u << 30, 8)}});
  ConvertOptions options;
  std::string seen;
  options.filter = [&](const ItemResult& r) {
    seen = r.subject;
    return false;
  };
  ItemResult refused;
  EXPECT_EQ(ConvertItem(items, bag, {}, options, refused), "");
  EXPECT_EQ(seen, "secret");
  EXPECT_EQ(refused.subject, "");
  EXPECT_EQ(refused.deliveryTime, 0u);
}

// Every message of every sample store is exported and held against readpst
// by cli.export_eml_oracle; what the export does not do is leave an RTF body
// to the save pipeline.
TEST_F(EmlBuilder, RtfBodiesAreLeftToThePipelineUnlessSavedDirectly) {
  MARROW_REQUIRE_TESTDATA();
  auto owned = test::SampleReader("ost/unicode512/aspose_SampleOstFile.ost", Dir().string());
  StoreReader& reader = *owned;
  reader.LoadNameMap();
  ItemReader items(reader, Item());
  ConvertOptions options;
  options.store = &reader;
  int rtfBodies = 0;
  for (const auto& [id, node] : test::MessageNodes(reader)) {
    SubnodeLists subnodes;
    PropertyBag bag;
    if (!test::ReadMessage(reader, node, subnodes, bag)) continue;
    items.ClearItemFolder();
    ItemResult result;
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(ConvertItem(items, bag, subnodes, options, result)));
    if (result.rtfPath.empty()) continue;
    ++rtfBodies;
    EXPECT_EQ(Bodies(email), "|-") << std::hex << id;
    ConvertOptions direct = options;
    direct.directSave = true;
    ItemResult again;
    EXPECT_FALSE(ConvertItem(items, bag, subnodes, direct, again).empty());
    EXPECT_EQ(again.rtfPath, "");
  }
  EXPECT_GT(rtfBodies, 0);
}

}  // namespace
}  // namespace marrow
