#include "platform/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "value/utf8.h"

namespace quorbex::platform {

namespace {

namespace utf8 = internal::utf8;

struct Range {
  char32_t first, last;
};

// Characters that take two cells: the East Asian wide and fullwidth blocks and the emoji planes.
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},   {0x2E80, 0x303E},
    {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xA960, 0xA97F},
    {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE10, 0xFE19},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF}, {0x20000, 0x2FFFD}, {0x30000, 0x3FFFD},
};

// Characters that take no cell of their own: combining marks and zero-width characters.
constexpr Range kZero[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF},
    {0x200B, 0x200F}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF},
};

template <size_t N>
bool In(const Range (&ranges)[N], char32_t c) {
  for (const Range& r : ranges) {
    if (c < r.first) return false;
    if (c <= r.last) return true;
  }
  return false;
}

size_t CharWidth(const utf8::Decoded& d) {
  if (!d.valid) return 1;
  if (d.code_point < 0x300) return 1;
  if (In(kZero, d.code_point)) return 0;
  return In(kWide, d.code_point) ? 2 : 1;
}

}  // namespace

bool IsTerminal(std::FILE* stream) {
  const int fd = stream ? fileno(stream) : -1;
  return fd >= 0 && isatty(fd);
}

int TerminalColumns(int fd) {
  winsize size{};
  if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

size_t DisplayWidth(std::string_view text) {
  size_t width = 0;
  for (size_t i = 0; i < text.size();) {
    const utf8::Decoded d = utf8::DecodeAt(text, i);
    width += CharWidth(d);
    i += d.length;
  }
  return width;
}

std::string FitToWidth(std::string_view text, size_t width) {
  const bool fits = DisplayWidth(text) <= width;
  const size_t room = fits ? width : (width > 0 ? width - 1 : 0);
  std::string out;
  size_t used = 0;
  for (size_t i = 0; i < text.size();) {
    const utf8::Decoded d = utf8::DecodeAt(text, i);
    const size_t w = CharWidth(d);
    if (used + w > room) break;
    const auto c = static_cast<unsigned char>(text[i]);
    if (d.length == 1 && (c < 0x20 || c == 0x7F)) {
      out += ' ';
    } else {
      out.append(text.substr(i, d.length));
    }
    used += w;
    i += d.length;
  }
  if (!fits && width > 0) out += "\xE2\x80\xA6";  // …
  return out;
}

}  // namespace quorbex::platform
