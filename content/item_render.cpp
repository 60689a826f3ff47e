#include "content/item_render.h"

#include "content/item_row_tables.h"
#include "content/multi_values.h"
#include "content/property_values.h"

namespace marrow {
namespace {

using namespace item_rows;

constexpr std::uint16_t kMessageClass = 0x001A;

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
    case Show::kTime: w.Text(row.label, GetDateText(bag, id, w.Save())); break;
    case Show::kNumber:
      if (w.Save() && bag.Find(id) != nullptr) {
        w.Text(row.label, std::to_string(static_cast<std::int32_t>(GetU32(bag, id))));
      }
      break;
    case Show::kFlag: {
      const PropertyValue* v = bag.Find(id);
      if (w.Save() && v != nullptr && FlagByte(*v) != 0) w.Text(row.label, std::to_string(FlagByte(*v)));
      break;
    }
    case Show::kCategories: w.Text(row.label, GetCategories(bag, map)); break;
  }
}

template <std::size_t N>
void WriteRows(RowWriter& w, const PropertyBag& bag, const NameMap& map, const TableRow (&rows)[N]) {
  for (const TableRow& row : rows) WriteRow(w, bag, map, row);
}

}  // namespace

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
    if (showAs < std::size(kShowAsTexts)) w.Line(std::string("Show As: ") + kShowAsTexts[showAs] + "\r\n");
  }
  if (FindNamed(bag, map, kLabel) != nullptr) {
    const std::uint32_t label = GetU32(bag, LocalIdFor(map, kLabel));
    if (label < std::size(kLabelTexts)) w.Line(std::string("LABEL: ") + kLabelTexts[label] + "\r\n");
  }
  return w.Take();
}

std::string RenderContact(const PropertyBag& bag, const NameMap& map, RowKind form, const SubnodeBytes& subnodes) {
  RowWriter w(form);
  WriteRows(w, bag, map, kContactNamedRows);
  for (const PlainRow& row : kContactPlainRows) w.Text(row.label, GetString(bag, row.tag, false));
  for (const PlainRow& row : kContactTimeRows) w.Text(row.label, GetDateText(bag, row.tag, w.Save()));
  if (ClassifyItem(GetString(bag, kMessageClass, false)) == kKindDistList) {
    for (const ListMember& m : ListMembers(bag, map, subnodes)) {
      w.Text("CONTACT DL ITEM", " " + m.name + " TYPE : " + m.addressType + " EMAIL ID : " + m.address);
    }
  }
  return w.Take();
}

std::string RenderItem(int kind, const PropertyBag& bag, const NameMap& map, RowKind form,
                       const SubnodeBytes& subnodes) {
  switch (kind) {
    case kKindJournal: return RenderJournal(bag, map, form);
    case kKindTask: return RenderTask(bag, map, form);
    case kKindAppointment: return RenderAppointment(bag, map, form);
    case kKindContact:
    case kKindDistList: return RenderContact(bag, map, form, subnodes);
    default: return {};
  }
}

}  // namespace marrow
