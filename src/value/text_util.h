// Small byte-level text tests and trims shared by the whole library.
//
// A blank is one of the six ASCII white-space characters: space, tab, line feed, carriage return,
// form feed and vertical tab. The classic Trim functions (quorbex::Trim, TrimSpaces) remove spaces
// only; the number and date scanners keep their own character classes, which are part of the runtime
// rules they follow.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorbex::internal {

constexpr bool IsBlank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

constexpr bool IsAsciiDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// True when every byte is below 0x80 (the empty text too).
constexpr bool IsAscii(std::string_view text) noexcept {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

constexpr char LowerAscii(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
constexpr char UpperAscii(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Changes A-Z in place; other bytes, UTF-8 sequences included, stay as they are.
inline void LowerAsciiInPlace(std::string& text) noexcept {
  for (char& c : text) c = LowerAscii(c);
}
inline std::string UpperAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = UpperAscii(c);
  return out;
}

// The text without leading and trailing blanks.
constexpr std::string_view TrimBlanks(std::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// The text without leading and trailing spaces, as the classic Trim has it.
constexpr std::string_view TrimSpaces(std::string_view text) noexcept {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// A statement without the blanks and semicolons that end it.
constexpr std::string_view TrimStatementEnd(std::string_view sql) noexcept {
  while (!sql.empty() && (IsBlank(sql.back()) || sql.back() == ';')) sql.remove_suffix(1);
  return sql;
}

// A statement without leading blanks and without the blanks and semicolons that end it.
constexpr std::string_view TrimStatement(std::string_view sql) noexcept {
  return TrimBlanks(TrimStatementEnd(sql));
}

// Equality of names ignoring the case of A-Z (as settings keys and SQL identifiers compare).
constexpr bool SameName(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
  }
  return true;
}

}  // namespace quorbex::internal
