// Header texts in encoded words (=?charset?B?...?=), as our messages write them.
#pragma once

#include <string>
#include <string_view>

namespace marrow {

// Rewrites the runs of adjacent UTF-8 encoded words in a raw header value so
// that every base64 word but a run's last holds a multiple of three bytes,
// split between characters. Readers that join a run's base64 before decoding
// (GMime among them) otherwise stop at the first padding and lose the rest of
// the text. A word that cannot be cut that way is written in the Q form.
// Values with nothing to mend come back as they are.
std::string MendEncodedWords(std::string_view raw);

}  // namespace marrow
