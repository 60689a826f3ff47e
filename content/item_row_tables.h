// The rows of each item view: label, long id and how the value shows.
// Private to item_render.cpp.
#pragma once

#include <cstdint>

namespace marrow::item_rows {

constexpr std::uint32_t kCategoriesId = 0x8013;
constexpr std::uint32_t kShowAs = 0x8205;
constexpr std::uint32_t kLabel = 0x8214;

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

constexpr const char* kShowAsTexts[] = {"Free", "Tentative", "Busy", "Out Of Office"};
constexpr const char* kLabelTexts[] = {"None",     "Importent",   "Business",       "Personal",
                                       "Vacation", "Must Attend", "Travel Request", "Need Prep",
                                       "Birthday", "Anniversary", "Phone Call"};

}  // namespace marrow::item_rows
