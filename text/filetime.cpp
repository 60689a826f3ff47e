#include "text/filetime.h"

namespace marrow {
namespace {

std::string Format(std::time_t t, const char* format, bool after1900) {
  std::tm local{};
  if (localtime_r(&t, &local) == nullptr) return {};
  if (after1900 && local.tm_year + 1900 <= 1900) return {};
  char text[64];
  if (std::strftime(text, sizeof text, format, &local) == 0) return {};
  return text;
}

}  // namespace

std::string LocalTimeText(std::time_t t, const char* format) {
  return Format(t, format, false);
}

std::string LocalTimeTextAfter1900(std::time_t t, const char* format) {
  return Format(t, format, true);
}

}  // namespace marrow
