// EML files of stored items: the repair of stored headers, the passes of
// BuildEml, the view of items that are not mail, and ConvertItem over real
// sample stores. What we write is read back with our own loader and with
// Python's email package, which knows nothing of how it was made.
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "content/eml_builder.h"
#include "content/item_converter.h"
#include "content/item_render.h"
#include "content/property_values.h"
#include "mail/ck_email.h"
#include "store/store_reader.h"
#include "tests/support/heap_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using Buf = std::vector<std::uint8_t>;

constexpr std::uint16_t kUnicode = 0x001F, kBinary = 0x0102, kTime = 0x0040;

// Python's view of one EML file: "subject=", "from=", "date=yes|no", then
// per leaf part "part=type|charset|filename" and, for a body, "text=" with
// its line ends as "\n".
constexpr const char* kViewScript = R"(import sys, email, email.policy
m = email.message_from_bytes(open(sys.argv[1], 'rb').read(), policy=email.policy.default)
print('subject=' + str(m['subject'] or ''))
print('from=' + str(m['from'] or ''))
print('date=' + ('yes' if m['date'] else 'no'))
for p in m.walk():
    if p.is_multipart(): continue
    print('part=%s|%s|%s' % (p.get_content_type(), p.get_content_charset() or '', p.get_filename() or ''))
    if p.get_content_maintype() == 'text' and not p.get_filename():
        print('text=' + p.get_content().replace('\r', '').replace('\n', '\\n'))
)";

// Every EML file of a folder, by name: "name<TAB>subject<TAB>attached messages".
constexpr const char* kFolderScript = R"(import sys, os, email, email.policy
d = sys.argv[1]
for name in sorted(os.listdir(d)):
    try:
        m = email.message_from_bytes(open(os.path.join(d, name), 'rb').read(), policy=email.policy.default)
        parts = m.get_payload() if m.is_multipart() else []
        n = sum(1 for p in parts if p.get_content_type() == 'message/rfc822')
        print('%s\t%s\t%d' % (name, str(m['subject'] or ''), n))
    except Exception as e:
        print('%s\tERROR %r\t-1' % (name, e))
)";

PropertyBag Bag(std::initializer_list<std::tuple<std::uint16_t, std::uint16_t, Buf>> values) {
  PropertyBag bag;
  for (const auto& [id, type, bytes] : values)
    bag.Append(PropertyValue::InMemory(id, type, bytes.data(), bytes.size()));
  return bag;
}

Buf Utf16(const std::string& utf8) {
  return Utf8ToUtf16(utf8);
}
Buf Bytes(std::string_view text) {
  return Buf(text.begin(), text.end());
}

std::string ReadText(const std::string& path) {
  const Buf bytes = test::ReadFileBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

std::size_t Count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

class EmlBuilder : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("marrow-eml-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_ / "item");
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string Item() const { return (dir_ / "item").string(); }
  std::string Write(const std::string& name, std::string_view bytes) const {
    const std::string path = (dir_ / name).string();
    std::ofstream(path, std::ios::binary).write(bytes.data(), bytes.size());
    return path;
  }
  // Runs a script over `arg` with python3: its output, which tells when it failed.
  std::string Python(const char* script, const std::string& arg) const {
    const std::string scriptPath = Write("view.py", script);
    const std::string command =
        "PYTHONIOENCODING=utf-8 python3 '" + scriptPath + "' '" + arg + "' 2>&1";
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return "python did not start";
    std::string out;
    char chunk[4096];
    for (std::size_t n; (n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) out.append(chunk, n);
    return ::pclose(pipe) == 0 ? out : "python failed: " + out;
  }
  std::string View(const std::string& eml) const { return Python(kViewScript, eml); }

  fs::path dir_;
};

constexpr const char* kStoredHeaders =
    "Gateway Internet Headers Version 2.0\r\n"
    "Received: from relay.example.org by mx.example.org; Tue, 12 May 2020 14:45:17 +0900\r\n"
    "Received: from client by relay.example.org; Tue, 12 May 2020 14:45:10 +0900\r\n"
    "Authentication-Results: mx.example.org; spf=pass\r\n"
    "X-Relay-Antispam-Report: CIP:10.0.0.1;CTRY:;SFV:NSPM\r\n"
    "x-gateway-antispam: BCL:0;\r\n"
    "X-Filter-AntiSpam-MessageData:\r\n"
    " c29tZSBmb2xkZWQgZGF0YQ==\r\n"
    "From: /O=EXAMPLE/OU=FIRST ADMINISTRATIVE GROUP/CN=RECIPIENTS/CN=ANN\r\n"
    "To: Bob <bob@example.org>\r\n"
    "Subject: stored subject\r\n"
    "Content-Type: multipart/alternative;\r\n"
    "\tboundary=\"----=_NextPart_000_0001\"\r\n"
    "Content-Transfer-Encoding: 7bit\r\n";

TEST_F(EmlBuilder, RepairKeepsTheRouteAndDropsFilterVerdictsAndTheStoredType) {
  const std::string path = Write("headers.eml", kStoredHeaders);
  ASSERT_TRUE(RepairMime(path, "", true, ""));
  CkEmail email;
  ASSERT_TRUE(email.LoadEml(path));
  std::vector<std::string> names;
  for (int i = 0; i < email.NumHeaderFields(); ++i) names.push_back(email.GetHeaderFieldName(i));
  EXPECT_EQ(std::count(names.begin(), names.end(), "Received"), 2);
  for (const std::string& name : names) {
    std::string lower = name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(lower.find("antispam"), std::string::npos) << name;
    EXPECT_NE(lower, "authentication-results");
  }
  EXPECT_EQ(email.GetHeaderField("To"), "Bob <bob@example.org>");
  EXPECT_EQ(ReadText(path).find("NextPart"), std::string::npos) << "the stored boundary is gone";

  // Nothing that reads as a header: refused, and the file left alone.
  const std::string junk = Write("junk.eml", "no header here\r\n\r\nbody\r\n");
  EXPECT_FALSE(RepairMime(junk, "x", true, ""));
  EXPECT_EQ(ReadText(junk), "no header here\r\n\r\nbody\r\n");
  EXPECT_FALSE(RepairMime((dir_ / "missing.eml").string(), "x", true, ""));
}

TEST_F(EmlBuilder, RepairSetsTheBodiesItIsGiven) {
  struct Case {
    const char* text;
    bool isPlain;
    const char* html;
    const char* plainBody;  // nullptr: no plain body
    const char* htmlBody;   // nullptr: no HTML body
  };
  const Case cases[] = {
      {"one <x-flowed>two</x-flowed> three", true, "", "one two three", nullptr},
      {"plain", true, "<p>both</p>", "plain", "<p>both</p>"},
      {"<p>text as html</p>", false, "", nullptr, "<p>text as html</p>"},
      {"<p>loses</p>", false, "<p>wins</p>", nullptr, "<p>wins</p>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string path = Write("headers.eml", kStoredHeaders);
    ASSERT_TRUE(RepairMime(path, c.text, c.isPlain, c.html));
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(path));
    EXPECT_EQ(email.HasPlainTextBody(), c.plainBody != nullptr);
    EXPECT_EQ(email.HasHtmlBody(), c.htmlBody != nullptr);
    if (c.plainBody) {
      EXPECT_EQ(email.GetPlainTextBody(), c.plainBody);
    }
    if (c.htmlBody) {
      EXPECT_EQ(email.GetHtmlBody(), c.htmlBody);
    }
  }
}

TEST_F(EmlBuilder, SenderFromTheItemWhenTheHeadersGiveNoneOrADistinguishedName) {
  struct Case {
    const char* headers;
    const char* want;
  };
  const Case cases[] = {
      {kStoredHeaders, "Ann Lee <ann@example.org>"},
      {"From: Carl <carl@example.org>\r\nSubject: s\r\n", "Carl <carl@example.org>"},
      {"Subject: no sender\r\n", "Ann Lee <ann@example.org>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.headers);
    EmlParts parts;
    parts.transportHeaders = c.headers;
    parts.fromText = "Ann Lee<ann@example.org>";
    parts.subject = "s";
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(BuildEml(Item(), parts, {})));
    EXPECT_EQ(email.From(), c.want);
  }
}

TEST_F(EmlBuilder, AttachmentsCarryTheirHeadersAndMessagesGoAsMessages) {
  AttachmentLists files;
  files.Add(Write("a file.txt", "first"), "a file.txt", "", "text/plain");
  files.Add(Write("x.bin", "second"), "report 2024.pdf", "cid-7@example.org", "application/pdf");
  files.Add(Write("inner.eml", "Subject: inner\r\nFrom: a@b.org\r\n\r\nhi\r\n"), "inner.eml", "",
            "message/rfc822");
  files.Add(Write("plain", "third"), "no type", "", "");
  EmlParts parts;
  parts.subject = "with files";
  parts.bodyPath = Write("body.txt", "body");
  const std::string path = BuildEml(Item(), parts, files);
  const std::string mime = ReadText(path);
  EXPECT_EQ(Count(mime, "content-iD: "), 3u) << "spelled so, on each attachment part";
  EXPECT_NE(mime.find("content-iD: a file.txt\r\n"), std::string::npos);
  EXPECT_NE(mime.find("content-iD: cid-7@example.org\r\n"), std::string::npos);

  CkEmail email;
  ASSERT_TRUE(email.LoadEml(path));
  ASSERT_EQ(email.NumAttachments(), 3);
  EXPECT_EQ(email.GetAttachmentFilename(0), "a file.txt");
  EXPECT_EQ(email.GetAttachmentFilename(1), "report 2024.pdf");
  EXPECT_EQ(email.GetAttachmentContentType(1), "application/pdf");
  EXPECT_EQ(email.GetAttachmentContentType(2), "application/octet-stream");
  ASSERT_EQ(email.NumAttachedMessages(), 1);
  EXPECT_EQ(email.GetAttachedMessage(0)->Subject(), "inner");

  // A file name with blanks reads back whole, not cut at the first blank.
  const std::string view = View(path);
  EXPECT_NE(view.find("part=text/plain||a file.txt\n"), std::string::npos) << view;
  EXPECT_NE(view.find("part=application/pdf||report 2024.pdf\n"), std::string::npos) << view;
  EXPECT_NE(view.find("text=body"), std::string::npos) << view;
}

TEST_F(EmlBuilder, AnAttachmentThatCannotBeAddedStillTakesItsIndex) {
  AttachmentLists files;
  files.Add(Write("one.txt", "1"), "one.txt", "", "text/plain");
  files.Add((dir_ / "gone.bin").string(), "gone.bin", "", "image/png");
  files.Add(Write("3.tmp", "3"), "three.txt", "cid-3", "text/plain");
  const std::string path = BuildEml(Item(), {}, files);
  CkEmail email;
  ASSERT_TRUE(email.LoadEml(path));
  ASSERT_EQ(email.NumAttachments(), 2);
  EXPECT_EQ(email.GetAttachmentFilename(0), "one.txt");
  std::string bytes;
  ASSERT_TRUE(email.GetAttachmentData(1, &bytes));
  EXPECT_EQ(bytes, "3");
  // The part after the gap looks for its headers one index too far, finds
  // no part there and keeps the name of the file it was made from.
  EXPECT_EQ(email.GetAttachmentFilename(1), "3.tmp");
  EXPECT_EQ(Count(ReadText(path), "content-iD: "), 1u);
}

TEST_F(EmlBuilder, DateFromTheDateTextOrTheDeliveryTimeOrNone) {
  std::int64_t local = 0;
  ASSERT_TRUE(ParseDateText("Wed 01/17/2024 21:20 PM", &local));
  EXPECT_EQ(local, 1705526400);  // 2024-01-17 21:20 as wall-clock seconds
  ASSERT_TRUE(ParseDateText("01/17/2024 21:20 PM", &local)) << "no weekday: read whole";
  EXPECT_EQ(local, 1705526400);
  for (const char* bad : {"", "Wed", "Wed 13/01/2024 10:00 AM", "Wed 02/30/2024 10:00 AM",
                          "Mon 01/01/1899 10:00 AM", "Wed 01/17/2024 24:00 PM", "Wed 1/17/2024"})
    EXPECT_FALSE(ParseDateText(bad, &local)) << bad;

  std::tm wall{};
  wall.tm_year = 124, wall.tm_mon = 0, wall.tm_mday = 17, wall.tm_hour = 21, wall.tm_min = 20;
  wall.tm_isdst = -1;
  const std::int64_t utc = std::mktime(&wall);

  EmlParts parts;
  parts.subject = "dated";
  parts.dateText = "Wed 01/17/2024 21:20 PM";
  CkEmail email;
  std::int64_t seconds = 0;
  ASSERT_TRUE(email.LoadEml(BuildEml(Item(), parts, {})));
  ASSERT_TRUE(email.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, utc);

  parts.dateText.clear();
  const std::string undated = BuildEml(Item(), parts, {});
  ASSERT_TRUE(email.LoadEml(undated));
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
  const Buf wide = Utf16(cjk);
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
    EXPECT_EQ(ReadText(path).find("koi8"), std::string::npos);
    const std::string view = View(path);
    EXPECT_NE(view.find("subject=Привет, мир\n"), std::string::npos) << view;
    EXPECT_NE(view.find(std::string("text=") + c.text), std::string::npos) << view;
    EXPECT_NE(view.find(c.isPlain ? "part=text/plain|utf-8|" : "part=text/html|utf-8|"),
              std::string::npos)
        << view;
    EXPECT_EQ(Count(view, "part="), 1u) << view;
  }
}

TEST_F(EmlBuilder, ItemsThatAreNotMailShowTheirRowsOrTheirBody) {
  const std::string rows =
      "<ITEM>Location : Hall <A></ITEM>\r\n<ITEM>END TIME : 133500000000000000</ITEM>\r\n";
  AttachmentLists files;
  files.Add(Write("agenda.txt", "agenda"), "agenda.txt", "", "text/plain");
  ItemEmlParts parts;
  parts.itemText = rows;
  parts.typeText = "CALENDER";
  parts.deliveryTime = 133500000000000000ull;
  const std::string path = BuildItemEml(Item(), parts, files);
  ASSERT_FALSE(path.empty());
  EXPECT_FALSE(fs::exists(dir_ / "item" / "temp12as.part"));

  CkEmail email;
  ASSERT_TRUE(email.LoadEml(path));
  EXPECT_EQ(email.Subject(), "CALENDER");
  std::int64_t seconds = 0;
  ASSERT_TRUE(email.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, 133500000000000000 / 10000000 - 11644473600LL);
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
  EXPECT_EQ(email.GetHtmlBody(),
            "<html><body><p>Bring &lt;notes&gt;<br>\nand coffee</p></body></html>");
  EXPECT_EQ(email.NumAttachments(), 1) << "the rows still go along";
}

// ---- ConvertItem ----------------------------------------------------------

TEST_F(EmlBuilder, ConvertPicksTheBodyRecipientsAndSenderOfAnItem) {
  StoreReader store;  // nothing open: the items have no subnodes
  ItemReader items(store, Item());
  const std::string headers =
      "From: Ann Lee <ann@example.org>\r\nTo: bob@example.org, cy@example.org\r\nSubject: s\r\n";
  struct Case {
    const char* name;
    std::vector<std::tuple<std::uint16_t, std::uint16_t, Buf>> body;
    const char* plain;  // nullptr: no plain body
    const char* html;   // nullptr: no HTML body
  };
  const Case cases[] = {
      {"none", {}, "\t\t\t\t   ", nullptr},
      {"plain", {{0x1000, kUnicode, Utf16("plain text")}}, "plain text", nullptr},
      {"html",
       {{0x1000, kUnicode, Utf16("plain")}, {0x1013, kBinary, Bytes("<p>x</p>")}},
       nullptr,
       "<p>x</p>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PropertyBag bag = Bag({{0x001A, kUnicode, Utf16("IPM.Note")},
                           {0x0037, kUnicode, Utf16("Отчёт")},
                           {0x0C1A, kUnicode, Utf16("Ann")},
                           {0x0C1F, kUnicode, Utf16("/O=EXAMPLE/CN=ANN")},
                           {0x0E04, kUnicode, Utf16("Bob")},
                           {0x0E03, kUnicode, Utf16("A Long Display Name")},
                           {0x0E06, kTime, test::LE(133500000000000000ull, 8)},
                           {0x007D, kUnicode, Utf16(headers + "Cc: d@e.org\r\n")}});
    for (const auto& [id, type, bytes] : c.body)
      bag.Append(PropertyValue::InMemory(id, type, bytes.data(), bytes.size()));
    ItemResult result;
    const std::string path = ConvertItem(items, bag, {}, {}, result);
    EXPECT_EQ(result.fromText, "Ann Lee <ann@example.org>")
        << "a distinguished name asks the headers";
    EXPECT_EQ(result.toText, "bob@example.org;cy@example.org") << "longer than 0x0E04";
    EXPECT_EQ(result.ccText, "A Long Display Name") << "longer than the headers' Cc";
    EXPECT_EQ(result.typeText, "EMAIL");
    CkEmail email;
    ASSERT_TRUE(email.LoadEml(path));
    EXPECT_EQ(email.Subject(), "Отчёт");
    EXPECT_EQ(email.HasPlainTextBody(), c.plain != nullptr);
    EXPECT_EQ(email.HasHtmlBody(), c.html != nullptr);
    if (c.plain) {
      EXPECT_EQ(email.GetPlainTextBody(), c.plain);
    }
    if (c.html) {
      EXPECT_EQ(email.GetHtmlBody(), c.html);
    }
  }

  // A refused item is not converted and shows no sender, subject or time.
  PropertyBag bag =
      Bag({{0x0037, kUnicode, Utf16("secret")}, {0x0E06, kTime, test::LE(1u << 30, 8)}});
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

TEST_F(EmlBuilder, EveryMessageOfSampleStoresConvertsToMailBothReadersTake) {
  MARROW_REQUIRE_TESTDATA();
  struct Sample {
    const char* store;
    int attachedMessages;  // at least, over the store
  };
  const Sample samples[] = {
      {"ost/unicode512/aspose_SampleOstFile.ost", 1},
      {"pst/unicode/aspose_Outlook.pst", 4},
      {"ost4k/ruby-msg_msgInMsg.ost", 1},
      {"pst/unicode/aspose_passwordprotectedPST.pst", 1},  // Chinese subjects and names
      {"pst/ansi/hiraoka_contacts97-2002.pst", 0},         // 8-bit Japanese text
  };
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.store);
    StoreReader reader(dir_.string());
    ASSERT_TRUE(reader.OpenSource(
        std::make_unique<MemorySource>(test::ReadFileBytes(test::Sample(sample.store)))));
    reader.LoadNameMap();
    std::vector<NodeEntry> messages;
    VisitedSet pages;
    reader.ForEachNodeEntry(reader.nodeRootOffset, pages, [&](const NodeEntry& e) {
      if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) messages.push_back(e);
    });
    ASSERT_FALSE(messages.empty());
    const fs::path out = dir_ / "out";
    fs::remove_all(out);
    fs::create_directories(out);
    ItemReader items(reader, Item());
    ConvertOptions options;
    options.store = &reader;
    std::map<std::string, std::pair<std::string, int>> want;  // file -> subject, attached messages
    int attached = 0, rtfBodies = 0;
    for (const NodeEntry& e : messages) {
      SubnodeLists subnodes;
      reader.ReadSubnodeList(e.subnodeBlock, subnodes);
      PropertyBag bag;
      if (!reader.ReadBagFromBlock(e.dataBlock, bag, subnodes)) continue;
      SCOPED_TRACE(::testing::Message() << "message 0x" << std::hex << e.nodeId);
      items.ClearItemFolder();
      ItemResult result;
      const std::string path = ConvertItem(items, bag, subnodes, options, result);
      // Trailing blanks of a field value are not part of it for either reader.
      std::string subject = GetString(bag, 0x0037, true);
      subject.erase(subject.find_last_not_of(" \t") + 1);
      const int messagesIn =
          static_cast<int>(std::count(result.attachments.mimeTags.begin(),
                                      result.attachments.mimeTags.end(), "message/rfc822"));
      CkEmail email;
      ASSERT_TRUE(email.LoadEml(path));
      if (!subject.empty()) {
        EXPECT_EQ(email.Subject(), subject);
      }
      EXPECT_EQ(email.NumAttachedMessages(), messagesIn);
      EXPECT_TRUE(email.HasPlainTextBody() || email.HasHtmlBody());
      if (result.kind != kKindMail && result.kind != kKindStickyNote) {
        EXPECT_FALSE(result.itemText.empty()) << result.messageClass;
      }
      if (!result.rtfPath.empty()) {
        // The RTF body is left to the pipeline, unless saved directly.
        EXPECT_EQ(email.GetPlainTextBody(), "");
        EXPECT_FALSE(email.HasHtmlBody());
        if (rtfBodies++ == 0) {
          ConvertOptions direct = options;
          direct.directSave = true;
          ItemResult again;
          EXPECT_FALSE(ConvertItem(items, bag, subnodes, direct, again).empty());
          EXPECT_EQ(again.rtfPath, "");
        }
      }
      attached += messagesIn;
      char name[32];
      std::snprintf(name, sizeof name, "%08llx.eml", static_cast<unsigned long long>(e.nodeId));
      fs::copy_file(path, out / name);
      want[name] = {subject.empty() ? email.Subject() : subject, messagesIn};
    }
    EXPECT_GE(attached, sample.attachedMessages);
    EXPECT_GT(rtfBodies, 0);

    std::istringstream lines(Python(kFolderScript, out.string()));
    std::size_t seen = 0;
    for (std::string line; std::getline(lines, line);) {
      const std::size_t tab = line.find('\t'), last = line.rfind('\t');
      ASSERT_NE(tab, last) << line;
      const std::string file = line.substr(0, tab);
      ASSERT_EQ(want.count(file), 1u) << line;
      EXPECT_EQ(line.substr(tab + 1, last - tab - 1), want[file].first) << file;
      EXPECT_EQ(std::stoi(line.substr(last + 1)), want[file].second) << file;
      ++seen;
    }
    EXPECT_EQ(seen, want.size());
  }
}

}  // namespace
}  // namespace marrow
