// UTF-8 walking for the text functions.
//
// A character is one well-formed UTF-8 sequence. Anything else (a stray continuation byte, a truncated
// or overlong sequence, an encoded surrogate, a value above U+10FFFF) is one character per byte, kept
// as it is. Every function here agrees on that rule, so positions computed by one are valid for another.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorbex::internal::utf8 {

struct Decoded {
  char32_t code_point = 0;  // meaningful only when valid
  unsigned length = 1;      // bytes taken; 1 for an invalid byte
  bool valid = false;
};

inline bool IsContinuation(unsigned char c) noexcept { return (c & 0xC0) == 0x80; }

// Decodes the character starting at byte `i` (i < s.size()).
inline Decoded DecodeAt(std::string_view s, std::size_t i) noexcept {
  const auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) return {b0, 1, true};
  unsigned length;
  char32_t cp;
  char32_t min;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    length = 2, cp = b0 & 0x1F, min = 0x80;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    length = 3, cp = b0 & 0x0F, min = 0x800;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    length = 4, cp = b0 & 0x07, min = 0x10000;
  } else {
    return {};
  }
  if (i + length > s.size()) return {};
  for (unsigned k = 1; k < length; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if (!IsContinuation(b)) return {};
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return {};
  return {cp, length, true};
}

inline void Append(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// Number of characters in `s`.
inline std::size_t CountChars(std::string_view s) noexcept {
  std::size_t n = 0;
  for (std::size_t i = 0; i < s.size(); ++n) {
    i += static_cast<unsigned char>(s[i]) < 0x80 ? 1 : DecodeAt(s, i).length;
  }
  return n;
}

// Byte offset reached after skipping `chars` characters from byte `from` (a character boundary);
// s.size() when the text is shorter. `skipped`, when given, receives how many were actually skipped.
inline std::size_t Advance(std::string_view s, std::size_t from, std::size_t chars,
                           std::size_t* skipped = nullptr) noexcept {
  std::size_t i = from;
  std::size_t n = 0;
  for (; n < chars && i < s.size(); ++n) {
    i += static_cast<unsigned char>(s[i]) < 0x80 ? 1 : DecodeAt(s, i).length;
  }
  if (skipped) *skipped = n;
  return i;
}

// True when byte `p` starts a character. A lead byte always does, so only a continuation byte needs a
// look back at the (at most three) bytes before it.
inline bool IsBoundary(std::string_view s, std::size_t p) noexcept {
  if (p == 0 || p >= s.size()) return true;
  if (!IsContinuation(static_cast<unsigned char>(s[p]))) return true;
  for (std::size_t k = 1; k <= 3 && k <= p; ++k) {
    if (IsContinuation(static_cast<unsigned char>(s[p - k]))) continue;
    const Decoded d = DecodeAt(s, p - k);
    return !(d.valid && d.length > k);
  }
  return true;
}

}  // namespace quorbex::internal::utf8
