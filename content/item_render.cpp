#include "content/item_render.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "content/property_values.h"
#include "store/ascii_case.h"

namespace marrow {
namespace {

constexpr std::uint16_t kMessageClass = 0x001A;
constexpr std::uint16_t kTypeMultiString8 = 0x101E;
constexpr std::uint16_t kTypeMultiUnicode = 0x101F;
constexpr std::uint16_t kTypeMultiBinary = 0x1102;
constexpr std::uint16_t kTypeTime = 0x0040;

constexpr std::uint32_t kCategoriesId = 0x8013;
constexpr std::uint32_t kShowAs = 0x8205;
constexpr std::uint32_t kLabel = 0x8214;
constexpr std::uint32_t kListOneOffMembers = 0x8054;

// How a row shows its value.
enum class Show { kText, kTime, kNumber, kFlag, kCategories };

struct TableRow {
  const char* label;
  std::uint32_t id;  // a long id
  Show show = Show::kText;
  std::uint32_t fallback = 0;  // long id read when `id` gives an empty text
};

constexpr TableRow kTaskRows[] = {
    {"START DATE", 0x8104, Show::kTime},
    {"DUE DATE", 0x8105, Show::kTime},
    {"COMPLETED DATE", 0x810F, Show::kTime},
    {"LAST UPDATED", 0x8115, Show::kTime},
    {"TASK OWNER", 0x811F},
    {"TASK ASSIGNER", 0x8121},
    {"TASK LAST USER", 0x8122},
    {"TASK LAST DELEGATE", 0x8125},
    {"TASK ROLE", 0x8127},
    {"CATAGORIES", kCategoriesId, Show::kCategories},
};

// The company and contact rows name plain tags, yet are looked up like the
// named ones: a map without such a numeric name hands the tag back as it is.
constexpr TableRow kJournalRows[] = {
    {"START TIME", 0x8706, Show::kTime},
    {"END TIME", 0x8708, Show::kTime},
    {"TYPE DESCRIPTION", 0x8712},
    {"COMPANY", 0x3A16},
    {"Contact Name", 0x3303},
    {"CATAGORIES", kCategoriesId, Show::kCategories},
};

constexpr TableRow kAppointmentRows[] = {
    {"START TIME", 0x820D, Show::kTime},
    {"END TIME", 0x820E, Show::kTime},
    {"Location", 0x8208},
    {"Meeting Url", 0x8209},
    {"Time Zone", 0x8234},
    {"All Attendees", 0x8238},
    {"To Attendees", 0x823B},
    {"CC Attendees", 0x823C},
    {"Net Meeting Server", 0x8242},
    {"Net Meeting Organizer Alias", 0x8243},
    {"Net Meeting Document Path Name", 0x8247},
    {"Net Show URL", 0x8248},
    {"Conference Server Password", 0x8249},
    {"Appointment Reply Name", 0x8230},
    {"Recurrence Pattern", 0x8232},
    {"Show As", kShowAs, Show::kNumber},
    {"LABEL", kLabel, Show::kNumber},
    {"Send As ICAL Boolean", 0x8200, Show::kFlag},
    {"Exceptional Body", 0x8206, Show::kFlag},
    {"Forward Instance", 0x820A, Show::kFlag},
    {"Exceptional Attendees", 0x822B, Show::kFlag},
    {"Auto Fill Location", 0x823A, Show::kFlag},
    {"Is an online meeting", 0x8240, Show::kFlag},
    {"Net meeting auto start", 0x8244, Show::kFlag},
    {"Conference server allow", 0x8246, Show::kFlag},
    {"Appointment counter proposal", 0x8257, Show::kFlag},
    {"Appointment Not Allow Propose", 0x825A, Show::kFlag},
    {"CATAGORIES", kCategoriesId, Show::kCategories},
};

constexpr TableRow kContactNamedRows[] = {
    {"YOMI COMPANY NAME", 0x8002},
    {"FILE UNDER", 0x8005},
    {"DEPARTMENT", 0x8010},
    {"HOME ADDRESS", 0x801A},
    {"WORK ADDRESS", 0x801B},
    {"OTHER ADDRESS", 0x801C},
    {"POSTAL ADDRESS ID", 0x8022},
    {"HTML WEBPAGE", 0x802B},
    {"YOMI FIRST NAME", 0x802C},
    {"YOMI LAST NAME", 0x802D},
    {"WORK ADDRESS STREET", 0x8045},
    {"WORK ADDRESS CITY", 0x8046},
    {"WORK ADDRESS STATE", 0x8047},
    {"WORK ADDRESS POSTAL CODE", 0x8048},
    {"WORK ADDRESS COUNTRY", 0x8049},
    {"WORK ADDRESS POST OFFICE BOX", 0x804A},
    {"CONTACT USER FIELD1", 0x804F},
    {"CONTACT USER FIELD2", 0x8050},
    {"CONTACT USER FIELD3", 0x8051},
    {"CONTACT USER FIELD4", 0x8052},
    {"DISTRIBUTION LIST", 0x8053},
    {"INSTANT MESSAGING ADDRESS", 0x8062},
    {"EMAIL1 DISPLAY NAME", 0x80A9, Show::kText, 0x8080},
    {"EMAIL1 ADDRESS TYPE", 0x8082},
    {"EMAIL1 EMAIL ADDRESS", 0x8083},
    {"EMAIL1 ORIGINAL DISPLAY NAME", 0x8084},
    {"EMAIL1 EMAIL TYPE", 0x8087},
    {"EMAIL2 DISPLAY NAME", 0x80AA, Show::kText, 0x8090},
    {"EMAIL2 ADDRESS TYPE", 0x8092},
    {"EMAIL2 EMAIL ADDRESS", 0x8093},
    {"EMAIL2 ORIGINAL DISPLAY NAME", 0x8094},
    {"EMAIL3 DISPLAY NAME", 0x80AB, Show::kText, 0x80A0},
    {"EMAIL3 ADDRESS TYPE", 0x80A2},
    {"EMAIL3 EMAIL ADDRESS", 0x80A3},
    {"EMAIL3 ORIGINAL DISPLAY NAME", 0x80A4},
    {"FAX1 ADDRESS TYPE", 0x80B2},
    {"FAX1 EMAIL ADDRESS", 0x80B3},
    {"FAX1 ORIGINAL DISPLAY NAME", 0x80B4},
    {"FAX2 ADDRESS TYPE FAX2", 0x80C2},
    {"FAX2 EMAIL ADDRESS FAX2", 0x80C3},
    {"FAX2 ORIGINAL DISPLAY NAME FAX2", 0x80C4},
    {"FAX3 ADDRESS TYPE FAX3 ADDRESS", 0x80D2},
    {"FAX3 EMAIL ADDRESS FAX3", 0x80D3},
    {"FAX3 ORIGINAL DISPLAY NAME", 0x80D4},
    {"FREE BUSY LOCATION", 0x80D8},
    {"HOME ADDRESS COUNTRY CODE", 0x80DA},
    {"WORK ADDRESS COUNTRY CODE", 0x80DB},
    {"OTHER ADDRESS COUNTRY CODE", 0x80DC},
    {"ADDRESS COUNTRY CODE", 0x80DD},
    {"CATAGORIES", kCategoriesId, Show::kCategories},
};

// Tags of the contact itself. Where two labels share a tag, both rows are shown.
struct PlainRow {
  const char* label;
  std::uint16_t tag;
};
constexpr PlainRow kContactPlainRows[] = {
    {"ACCOUNT", 0x3A00},
    {"CALLBACK TELEPHONE NUMBER", 0x3A02},
    {"GENERATION", 0x3A05},
    {"GIVEN NAME", 0x3A06},
    {"GOVERNMENT ID NUMBER", 0x3A07},
    {"BUSINESS TELEPHONE NUMBER", 0x3A08},
    {"OFFICE TELEPHONE NUMBER", 0x3A08},
    {"HOME TELEPHONE NUMBER", 0x3A09},
    {"INITIALS", 0x3A0A},
    {"KEYWORD", 0x3A0B},
    {"LANGUAGE", 0x3A0C},
    {"LOCATION", 0x3A0D},
    {"MHS COMMON NAME", 0x3A0F},
    {"ORGANIZATIONAL ID NUMBER", 0x3A10},
    {"SURNAME", 0x3A11},
    {"ORIGINAL DISPLAY NAME", 0x3A13},
    {"POSTAL ADDRESS", 0x3A15},
    {"COMPANY NAME", 0x3A16},
    {"TITLE", 0x3A17},
    {"DEPARTMENT NAME", 0x3A18},
    {"OFFICE LOCATION", 0x3A19},
    {"PRIMARY TELEPHONE NUMBER", 0x3A1A},
    {"BUSINESS2 TELEPHONE NUMBER", 0x3A1B},
    {"OFFICE2 TELEPHONE NUMBER", 0x3A1B},
    {"MOBILE TELEPHONE NUMBER", 0x3A1C},
    {"CELLULAR TELEPHONE NUMBER", 0x3A1C},
    {"RADIO TELEPHONE NUMBER", 0x3A1D},
    {"CAR TELEPHONE NUMBER", 0x3A1E},
    {"OTHER TELEPHONE NUMBER", 0x3A1F},
    {"TRANSMITABLE DISPLAY NAME", 0x3A20},
    {"PAGER TELEPHONE NUMBER", 0x3A21},
    {"BEEPER TELEPHONE NUMBER", 0x3A21},
    {"PRIMARY FAX NUMBER", 0x3A23},
    {"BUSINESS FAX NUMBER", 0x3A24},
    {"HOME FAX NUMBER", 0x3A25},
    {"COUNTRY", 0x3A26},
    {"BUSINESS ADDRESS COUNTRY", 0x3A26},
    {"LOCALITY", 0x3A27},
    {"BUSINESS ADDRESS CITY", 0x3A27},
    {"STATE OR PROVINCE", 0x3A28},
    {"BUSINESS ADDRESS  STATE OR PROVINCE", 0x3A28},
    {"STREET ADDRESS", 0x3A29},
    {"BUSINESS ADDRESS STREET", 0x3A29},
    {"POSTAL CODE", 0x3A2A},
    {"BUSINESS ADDRESS POSTAL CODE", 0x3A2A},
    {"POST OFFICE BOX", 0x3A2B},
    {"BUSINESS ADDRESS POST OFFICE BOX", 0x3A2B},
    {"TELEX NUMBER", 0x3A2C},
    {"ISDN NUMBER", 0x3A2D},
    {"ASSISTANT TELEPHONE NUMBER", 0x3A2E},
    {"HOME2 TELEPHONE NUMBER", 0x3A2F},
    {"ASSISTANT", 0x3A30},
    {"HOBBIES", 0x3A43},
    {"MIDDLE NAME", 0x3A44},
    {"DISPLAY NAME PREFIX", 0x3A45},
    {"PROFESSION", 0x3A46},
    {"PREFERRED BY NAME", 0x3A47},
    {"SPOUSE NAME", 0x3A48},
    {"COMPUTER NETWORK NAME", 0x3A49},
    {"CUSTOMER ID", 0x3A4A},
    {"TTYTDD PHONE NUMBER", 0x3A4B},
    {"FTP SITE", 0x3A4C},
    {"MANAGER NAME", 0x3A4E},
    {"NICKNAME", 0x3A4F},
    {"PERSONAL HOME PAGE", 0x3A50},
    {"BUSINESS HOME PAGE", 0x3A51},
    {"COMPANY MAIN PHONE NUMBER", 0x3A57},
    {"HOME ADDRESS CITY", 0x3A59},
    {"HOME ADDRESS COUNTRY", 0x3A5A},
    {"HOME ADDRESS POSTAL CODE", 0x3A5B},
    {"HOME ADDRESS STATE OR PROVINCE", 0x3A5C},
    {"HOME ADDRESS STREET", 0x3A5D},
    {"HOME ADDRESS POST OFFICE BOX", 0x3A5E},
    {"OTHER ADDRESS CITY", 0x3A5F},
    {"OTHER ADDRESS COUNTRY", 0x3A60},
    {"OTHER ADDRESS POSTAL CODE", 0x3A61},
    {"OTHER ADDRESS STATE OR PROVINCE", 0x3A62},
    {"OTHER ADDRESS STREET", 0x3A63},
    {"OTHER ADDRESS POST OFFICE BOX", 0x3A64},
};
constexpr PlainRow kContactTimeRows[] = {{"WEDDING_ANNIVERSARY", 0x3A41}, {"BIRTHDAY", 0x3A42}};

// Rows the mark-up reader turns from FILETIME into local time.
constexpr const char* kTimeLabels[] = {"START TIME",          "END TIME", "START DATE", "DUE DATE",
                                       "WEDDING_ANNIVERSARY", "BIRTHDAY"};

constexpr const char* kShowAsTexts[] = {"Free", "Tentative", "Busy", "Out Of Office"};
constexpr const char* kLabelTexts[] = {"None",     "Importent",   "Business",       "Personal",
                                       "Vacation", "Must Attend", "Travel Request", "Need Prep",
                                       "Birthday", "Anniversary", "Phone Call"};

// Where a list may keep its one-off members, tried in this order: fixed
// local ids, and at 0 the local id the map gives the one-off member list.
constexpr std::uint16_t kMemberSlots[] = {0x8083, 0x8100, 0, 0x803D, 0x8105};

// Identifies a one-off entry identifier.
constexpr std::uint8_t kOneOffProvider[16] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                                              0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
constexpr std::size_t kOneOffHeader = 24;  // flags 4, provider 16, version 2, flags 2
constexpr std::uint16_t kOneOffUnicode = 0x8000;

class RowWriter {
 public:
  explicit RowWriter(RowKind form) : save_(form == RowKind::kSave) {}

  bool Save() const { return save_; }

  void Text(const char* label, const std::string& value) {
    if (value.empty()) return;
    if (save_) out_ += "<ITEM>";
    out_ += label;
    out_ += " : ";
    out_ += value;
    out_ += save_ ? "</ITEM>\r\n" : "\r\n";
  }

  void Line(const std::string& line) { out_ += line; }

  std::string Take() { return std::move(out_); }

 private:
  bool save_;
  std::string out_;
};

// A flag's value is its first byte whatever the stored width.
std::uint8_t FlagByte(const PropertyValue& v) {
  return v.size >= 1 && !v.data.empty() ? v.data[0] : 0;
}

void WriteRow(RowWriter& w, const PropertyBag& bag, const NameMap& map, const TableRow& row) {
  const std::uint16_t id = LocalIdFor(map, row.id);
  switch (row.show) {
    case Show::kText: {
      std::string text = GetString(bag, id, false);
      if (text.empty() && row.fallback != 0) text = GetNamedString(bag, map, row.fallback);
      w.Text(row.label, text);
      break;
    }
    case Show::kTime:
      w.Text(row.label, GetDateText(bag, id, w.Save()));
      break;
    case Show::kNumber:
      if (w.Save() && bag.Find(id) != nullptr) {
        w.Text(row.label, std::to_string(static_cast<std::int32_t>(GetU32(bag, id))));
      }
      break;
    case Show::kFlag: {
      const PropertyValue* v = bag.Find(id);
      if (w.Save() && v != nullptr && FlagByte(*v) != 0)
        w.Text(row.label, std::to_string(FlagByte(*v)));
      break;
    }
    case Show::kCategories:
      w.Text(row.label, GetCategories(bag, map));
      break;
  }
}

template <std::size_t N>
void WriteRows(RowWriter& w, const PropertyBag& bag, const NameMap& map,
               const TableRow (&rows)[N]) {
  for (const TableRow& row : rows) WriteRow(w, bag, map, row);
}

// The [start, end) ranges of the values of a count-offsets-data layout.
// Offsets that point outside the data or do not grow are skipped; each value
// runs to the next offset kept, the last to the end.
std::vector<std::pair<std::size_t, std::size_t>> ValueRanges(Bytes bytes) {
  std::vector<std::pair<std::size_t, std::size_t>> ranges;
  if (bytes.size() < 8) return ranges;
  const std::size_t count = std::min<std::size_t>(ReadU32(bytes, 0), (bytes.size() - 4) / 4);
  const std::size_t dataStart = 4 + 4 * count;
  std::vector<std::size_t> starts;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = ReadU32(bytes, 4 + 4 * i);
    if (at < dataStart || at >= bytes.size() || (!starts.empty() && at <= starts.back())) continue;
    starts.push_back(at);
  }
  for (std::size_t i = 0; i < starts.size(); ++i) {
    ranges.emplace_back(starts[i], i + 1 < starts.size() ? starts[i + 1] : bytes.size());
  }
  return ranges;
}

bool IsMultiString(std::uint16_t type) {
  return type == kTypeMultiUnicode || type == kTypeMultiString8;
}

std::string Join(const std::vector<std::string>& values) {
  std::string out;
  for (const std::string& v : values) {
    if (v.empty()) continue;
    if (!out.empty()) out += ';';
    out += v;
  }
  return out;
}

// A NUL-terminated text at `at`, wide or 8-bit; `at` moves past its terminator.
std::string TakeText(Bytes bytes, std::size_t& at, bool wide) {
  const std::size_t start = at;
  if (wide) {
    while (at + 1 < bytes.size() && (bytes[at] != 0 || bytes[at + 1] != 0)) at += 2;
    const std::string text = Utf16ToUtf8(bytes.data() + start, std::min(at, bytes.size()) - start);
    at = std::min(at + 2, bytes.size());
    return text;
  }
  while (at < bytes.size() && bytes[at] != 0) ++at;
  const std::string text = CodePageToUtf8(bytes.data() + start, at - start, kDefaultCodePage);
  at = std::min(at + 1, bytes.size());
  return text;
}

// Appends the one-off members of each slice not already in `members`.
void AddMembers(const std::vector<std::vector<std::uint8_t>>& slices,
                std::vector<ListMember>& members) {
  for (const std::vector<std::uint8_t>& slice : slices) {
    ListMember m;
    if (!ReadOneOffEntry(slice, m) || m.name.empty()) continue;
    if (std::find(members.begin(), members.end(), m) == members.end())
      members.push_back(std::move(m));
  }
}

// A FILETIME written in decimal; false for anything but digits.
bool ParseDecimal(const std::string& text, std::uint64_t& value) {
  if (text.empty() ||
      !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); })) {
    return false;
  }
  value = std::strtoull(text.c_str(), nullptr, 10);
  return true;
}

std::string LocalTimeOf(const std::string& decimal) {
  std::uint64_t filetime = 0;
  if (!ParseDecimal(decimal, filetime)) return {};
  // One rule for how a time is shown: GetDateText's, over a one-value bag.
  std::uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<std::uint8_t>(filetime >> (8 * i));
  PropertyBag one;
  one.Append(PropertyValue::InMemory(0, kTypeTime, bytes, sizeof bytes));
  return GetDateText(one, 0, false);
}

}  // namespace

int ClassifyItem(const std::string& messageClass) {
  struct ClassRule {
    const char* text;
    int kind;
  };
  static constexpr ClassRule kRules[] = {
      {"IPM.CONTACT", kKindContact},  {"IPM.TASK", kKindTask},
      {"IPM.NOTE", kKindMail},        {"IPM.POST", kKindMail},
      {"IPM.APPO", kKindAppointment}, {"IPM.SCHEDULE", kKindAppointment},
      {"MEETING", kKindAppointment},  {"IPM.ACTIVITY", kKindJournal},
      {"IPM.STICK", kKindStickyNote}, {"IPM.DIST", kKindDistList},
  };
  const std::string upper = AsciiUpper(messageClass);
  for (const ClassRule& rule : kRules) {
    if (upper.find(rule.text) != std::string::npos) return rule.kind;
  }
  return kKindMail;
}

std::string ItemTypeText(int kind) {
  switch (kind) {
    case kKindJournal:
      return "JOURNAL";
    case kKindTask:
      return "TASK";
    case kKindAppointment:
      return "CALENDER";
    case kKindContact:
    case kKindDistList:
      return "CONTACT";
    default:
      return "EMAIL";
  }
}

std::vector<std::string> ReadMultiString(const PropertyValue& value, unsigned codePage) {
  std::vector<std::string> values;
  if (!IsMultiString(value.propType)) return values;
  const std::vector<std::uint8_t> bytes = ValueBytes(value);
  for (const auto& [start, end] : ValueRanges(bytes)) {
    values.push_back(value.propType == kTypeMultiUnicode
                         ? Utf16ToUtf8(bytes.data() + start, end - start)
                         : CodePageToUtf8(bytes.data() + start, end - start, codePage));
  }
  return values;
}

std::string GetCategories(const PropertyBag& bag, const NameMap& map) {
  const PropertyValue* named = FindNamed(bag, map, kCategoriesId);
  if (named != nullptr) {
    std::string joined = Join(ReadMultiString(*named, TextCodePage(bag)));
    if (!joined.empty()) return joined;
  }
  // Stores that lost the name map still keep the category names, which
  // carry the word in their default form ("Red Category").
  for (const PropertyValue& v : bag.Values()) {
    if (&v == named || !IsMultiString(v.propType)) continue;
    const std::vector<std::string> values = ReadMultiString(v, TextCodePage(bag));
    for (const std::string& one : values) {
      if (AsciiLower(one).find("category") != std::string::npos) return Join(values);
    }
  }
  return {};
}

// A multi-value binary as the list reader takes it: a count, then 8-byte
// entries whose second word is an offset. (The store keeps 4-byte offsets,
// as for multi-value strings; read this way, a list of n members gives at
// most n/2 slices, and each slice runs over two members.)
std::vector<std::pair<std::size_t, std::size_t>> BinaryRanges(Bytes bytes) {
  std::vector<std::pair<std::size_t, std::size_t>> ranges;
  if (bytes.size() < 8) return ranges;
  const std::size_t count = std::min<std::size_t>(ReadU32(bytes, 0), (bytes.size() - 4) / 8);
  std::vector<std::size_t> starts;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = ReadU32(bytes, 4 + 8 * i + 4);
    if (at >= bytes.size() || (!starts.empty() && at <= starts.back())) continue;
    starts.push_back(at);
  }
  for (std::size_t i = 0; i < starts.size(); ++i) {
    ranges.emplace_back(starts[i], i + 1 < starts.size() ? starts[i + 1] : bytes.size());
  }
  return ranges;
}

bool SplitMultiBinary(Bytes bytes, std::vector<std::vector<std::uint8_t>>& slices) {
  slices.clear();
  for (const auto& [start, end] : BinaryRanges(bytes)) {
    slices.emplace_back(bytes.begin() + start, bytes.begin() + end);
  }
  return !slices.empty();
}

bool ReadOneOffEntry(Bytes entry, ListMember& member) {
  if (entry.size() < kOneOffHeader ||
      !std::equal(std::begin(kOneOffProvider), std::end(kOneOffProvider), entry.begin() + 4)) {
    return false;
  }
  const bool wide = (ReadU16(entry, 22) & kOneOffUnicode) != 0;
  std::size_t at = kOneOffHeader;
  member.name = TakeText(entry, at, wide);
  member.addressType = TakeText(entry, at, wide);
  member.address = TakeText(entry, at, wide);
  return true;
}

std::vector<ListMember> ListMembers(const PropertyBag& bag, const NameMap& map,
                                    const SubnodeBytes& subnodes) {
  std::vector<ListMember> members;
  std::vector<std::vector<std::uint8_t>> slices;
  for (std::uint16_t slot : kMemberSlots) {
    const PropertyValue* v = bag.Find(slot != 0 ? slot : LocalIdFor(map, kListOneOffMembers));
    if (v == nullptr || v->propType != kTypeMultiBinary) continue;
    if (SplitMultiBinary(ValueBytes(*v), slices)) AddMembers(slices, members);
    if (!members.empty()) return members;
  }
  if (!subnodes) return members;
  for (const std::vector<std::uint8_t>& bytes : subnodes()) {
    if (SplitMultiBinary(bytes, slices)) AddMembers(slices, members);
  }
  return members;
}

std::string RenderTask(const PropertyBag& bag, const NameMap& map, RowKind form) {
  RowWriter w(form);
  WriteRows(w, bag, map, kTaskRows);
  return w.Take();
}

std::string RenderJournal(const PropertyBag& bag, const NameMap& map, RowKind form) {
  RowWriter w(form);
  WriteRows(w, bag, map, kJournalRows);
  return w.Take();
}

std::string RenderAppointment(const PropertyBag& bag, const NameMap& map, RowKind form) {
  RowWriter w(form);
  WriteRows(w, bag, map, kAppointmentRows);
  if (!w.Save()) return w.Take();
  if (FindNamed(bag, map, kShowAs) != nullptr) {
    const std::uint32_t showAs = GetU32(bag, LocalIdFor(map, kShowAs));
    if (showAs < std::size(kShowAsTexts))
      w.Line(std::string("Show As: ") + kShowAsTexts[showAs] + "\r\n");
  }
  if (FindNamed(bag, map, kLabel) != nullptr) {
    const std::uint32_t label = GetU32(bag, LocalIdFor(map, kLabel));
    if (label < std::size(kLabelTexts))
      w.Line(std::string("LABEL: ") + kLabelTexts[label] + "\r\n");
  }
  return w.Take();
}

std::string RenderContact(const PropertyBag& bag, const NameMap& map, RowKind form,
                          const SubnodeBytes& subnodes) {
  RowWriter w(form);
  WriteRows(w, bag, map, kContactNamedRows);
  for (const PlainRow& row : kContactPlainRows) w.Text(row.label, GetString(bag, row.tag, false));
  for (const PlainRow& row : kContactTimeRows)
    w.Text(row.label, GetDateText(bag, row.tag, w.Save()));
  if (ClassifyItem(GetString(bag, kMessageClass, false)) == kKindDistList) {
    for (const ListMember& m : ListMembers(bag, map, subnodes)) {
      w.Text("CONTACT DL ITEM",
             " " + m.name + " TYPE : " + m.addressType + " EMAIL ID : " + m.address);
    }
  }
  return w.Take();
}

std::string RenderItem(int kind, const PropertyBag& bag, const NameMap& map, RowKind form,
                       const SubnodeBytes& subnodes) {
  switch (kind) {
    case kKindJournal:
      return RenderJournal(bag, map, form);
    case kKindTask:
      return RenderTask(bag, map, form);
    case kKindAppointment:
      return RenderAppointment(bag, map, form);
    case kKindContact:
    case kKindDistList:
      return RenderContact(bag, map, form, subnodes);
    default:
      return {};
  }
}

std::string ReadMarkup(const std::string& text) {
  static const std::string kOpen = "<ITEM>";
  static const std::string kClose = "</ITEM>";
  static const std::string kSplit = " : ";
  std::string out;
  std::size_t from = 0;
  for (std::size_t end = text.find(kClose); end != std::string::npos;
       end = text.find(kClose, from)) {
    std::string row = text.substr(from, end - from);
    from = end + kClose.size();
    // What lies before the row's mark is the line break of the row before.
    const std::size_t open = row.find(kOpen);
    if (open != std::string::npos) {
      row.erase(0, open + kOpen.size());
    } else {
      row.erase(0, std::min(row.find_first_not_of("\r\n"), row.size()));
    }
    const std::size_t split = row.find(kSplit);
    std::string label = row.substr(0, split);
    std::string value =
        split == std::string::npos ? std::string() : row.substr(split + kSplit.size());
    if (std::find(std::begin(kTimeLabels), std::end(kTimeLabels), label) != std::end(kTimeLabels)) {
      value = LocalTimeOf(value);
    }
    out += kOpen + label + kSplit + value + kClose + "\r\n";
  }
  return out;
}

}  // namespace marrow
