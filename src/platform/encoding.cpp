#include "platform/encoding.h"

#include <iconv.h>

#include <cerrno>

namespace quorbex::platform {

namespace {

// One conversion descriptor per thread and direction: an iconv_t keeps shift state and must not be
// shared between threads, and opening one per call costs more than most conversions.
class Converter {
 public:
  Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
  ~Converter() {
    if (Ok()) iconv_close(cd_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  bool Ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t Get() const { return cd_; }

 private:
  iconv_t cd_;
};

// Length of the well-formed UTF-8 sequence at the start of `s`, 0 when it is broken.
size_t Utf8SequenceLength(std::string_view s) {
  if (s.empty()) return 0;
  auto b0 = static_cast<unsigned char>(s[0]);
  size_t length = b0 < 0x80 ? 1 : (b0 >> 5) == 0x6 ? 2 : (b0 >> 4) == 0xE ? 3 : (b0 >> 3) == 0x1E ? 4 : 0;
  if (length == 0 || length > s.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

namespace {
void ConvertNonAscii(std::string_view utf8, std::string& out);
}  // namespace

std::string ToWindows1252(std::string_view utf8) {
  // ASCII is the same in both, and most text is ASCII: copy its runs as they are and hand only the
  // stretches between them to the converter.
  std::string out;
  out.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    size_t ascii_end = i;
    while (ascii_end < utf8.size() && static_cast<unsigned char>(utf8[ascii_end]) < 0x80) ++ascii_end;
    out.append(utf8.substr(i, ascii_end - i));
    size_t other_end = ascii_end;
    while (other_end < utf8.size() && static_cast<unsigned char>(utf8[other_end]) >= 0x80) ++other_end;
    if (other_end > ascii_end) ConvertNonAscii(utf8.substr(ascii_end, other_end - ascii_end), out);
    i = other_end;
  }
  return out;
}

namespace {
void ConvertNonAscii(std::string_view utf8, std::string& out) {
  thread_local Converter converter("WINDOWS-1252", "UTF-8");
  if (!converter.Ok()) {
    // Without the gconv module every character outside ASCII becomes "?".
    for (char c : utf8) {
      if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) out += '?';
    }
    return;
  }
  iconv(converter.Get(), nullptr, nullptr, nullptr, nullptr);
  char* in = const_cast<char*>(utf8.data());
  size_t in_left = utf8.size();
  char buffer[4096];
  while (in_left > 0) {
    char* dest = buffer;
    size_t dest_left = sizeof buffer;
    size_t result = iconv(converter.Get(), &in, &in_left, &dest, &dest_left);
    out.append(buffer, static_cast<size_t>(dest - buffer));
    if (result != static_cast<size_t>(-1) || errno == E2BIG) continue;
    // EILSEQ (no such character in the code page, or broken UTF-8) or EINVAL (cut-off sequence):
    // one "?" for the character, or for the single byte when the sequence is broken.
    size_t skip = Utf8SequenceLength(std::string_view(in, in_left));
    if (skip == 0) skip = 1;
    out += '?';
    in += skip;
    in_left -= skip;
  }
}
}  // namespace

std::string FromWindows1252(std::string_view cp1252) {
  thread_local Converter converter("UTF-8", "WINDOWS-1252");
  std::string out;
  out.reserve(cp1252.size() + cp1252.size() / 4);
  iconv(converter.Get(), nullptr, nullptr, nullptr, nullptr);
  char* in = const_cast<char*>(cp1252.data());
  size_t in_left = cp1252.size();
  char buffer[4096];
  while (in_left > 0) {
    if (!converter.Ok()) {
      out += static_cast<unsigned char>(*in) < 0x80 ? *in : '?';
      ++in;
      --in_left;
      continue;
    }
    char* dest = buffer;
    size_t dest_left = sizeof buffer;
    size_t result = iconv(converter.Get(), &in, &in_left, &dest, &dest_left);
    out.append(buffer, static_cast<size_t>(dest - buffer));
    if (result != static_cast<size_t>(-1) || errno == E2BIG) continue;
    out += "\xEF\xBF\xBD";  // U+FFFD for an undefined byte
    ++in;
    --in_left;
  }
  return out;
}

}  // namespace quorbex::platform
