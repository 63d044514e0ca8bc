// The terminal: whether a stream goes to one, how wide it is, and how wide a text shows on it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace quorbex::platform {

// True when `stream` is a terminal (not a file or a pipe).
bool IsTerminal(std::FILE* stream);

// The width of the terminal behind the file descriptor in character cells; 80 when it cannot be told.
int TerminalColumns(int fd);

// The character cells `text` (UTF-8) takes on a terminal: 2 for a wide East Asian character or an
// emoji, 0 for a combining mark or a zero-width character, 1 for any other character and for every
// byte that is not valid UTF-8.
size_t DisplayWidth(std::string_view text);

// `text` cut so that it takes at most `width` cells, the cut marked by "…" (which takes one of them);
// the text itself when it fits. Control characters (line breaks, tabs) show as one blank each.
std::string FitToWidth(std::string_view text, size_t width);

}  // namespace quorbex::platform
