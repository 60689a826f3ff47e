#include "store/page_layout.h"

namespace marrow {
namespace {

constexpr PageLayout kAnsi512 = {512, 0x1F0, 0x1F1, 0x1F2, 0x1F3, 0x1F4, 0x1F5, false, 488, 31, 16, 41, 12, true};
constexpr PageLayout kUnicode512 = {512, 0x1E8, 0x1E9, 0x1EA, 0x1EB, 0x1F0, 0x1F1, false, 488, 15, 32, 20, 24, true};
// The large form keeps no usable repeat of the type; its row limit is the
// whole page, not the part before the trailer.
constexpr PageLayout kLarge4096 = {4096, 0xFD8, 0xFDA, 0xFDC, 0xFDD, 0xFE8, 0xFE9, true, 4096, 126, 32, 169, 24, false};

}  // namespace

const PageLayout& LayoutFor(bool isAnsi, bool isLargePage) {
  if (isLargePage) return kLarge4096;
  return isAnsi ? kAnsi512 : kUnicode512;
}

PageFields ReadPageFields(Bytes page, const PageLayout& l) {
  PageFields f;
  if (l.wideCounts) {
    f.count = ReadU16(page, l.countOffset);
    f.max = ReadU16(page, l.maxOffset);
  } else {
    f.count = ReadU8(page, l.countOffset);
    f.max = ReadU8(page, l.maxOffset);
  }
  f.size = ReadU8(page, l.sizeOffset);
  f.level = ReadU8(page, l.levelOffset);
  f.type = ReadU8(page, l.typeOffset);
  f.typeRepeat = ReadU8(page, l.typeRepeatOffset);
  return f;
}

NodeEntry ReadNodeEntry(Bytes row, bool isAnsi) {
  if (isAnsi) return {ReadU32(row, 0), ReadU32(row, 4), ReadU32(row, 8), ReadU32(row, 12)};
  return {ReadU32(row, 0), ReadU64(row, 8), ReadU64(row, 16), ReadU32(row, 24)};
}

BlockEntry ReadBlockEntry(Bytes row, bool isAnsi) {
  if (isAnsi) return {ReadU32(row, 0), ReadU32(row, 4), ReadU16(row, 8), ReadU16(row, 10)};
  return {ReadU64(row, 0), ReadU64(row, 8), ReadU16(row, 16), ReadU16(row, 18)};
}

BranchEntry ReadBranchEntry(Bytes row, bool isAnsi) {
  if (isAnsi) return {ReadU32(row, 0), ReadU32(row, 4), ReadU32(row, 8)};
  return {ReadU64(row, 0), ReadU64(row, 8), ReadU64(row, 16)};
}

}  // namespace marrow
