#include "mail/mime_library.h"

#include <gmime/gmime.h>

#include <mutex>

namespace marrow {

void EnsureMimeLibrary() {
  static std::once_flag once;
  std::call_once(once, [] { g_mime_init(); });
}

}  // namespace marrow
