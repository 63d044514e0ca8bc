// Conversion between the library's UTF-8 texts and the Windows-1252 code page of files that other
// programs expect in it (the session log, for one).
#pragma once

#include <string>
#include <string_view>

namespace quorbex::platform {

// `utf8` in Windows-1252. A character the code page lacks becomes "?", and so does each byte of a
// broken UTF-8 sequence; nothing is dropped and the call never fails.
std::string ToWindows1252(std::string_view utf8);

// `cp1252` in UTF-8. The five bytes the code page leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D)
// become U+FFFD.
std::string FromWindows1252(std::string_view cp1252);

}  // namespace quorbex::platform
